#ifndef OXLI_TEST_SUPPORT_VIRTUAL_MACHINE_H
#define OXLI_TEST_SUPPORT_VIRTUAL_MACHINE_H

#include <jni.h>

#include <string>
#include <vector>

namespace oxli::test {

// Starts a virtual machine on the calling thread of a program that links the library's objects, and
// binds the natives to them. Returns the JNIEnv of the thread, or null on failure. Call once in a
// process.
JNIEnv* startVirtualMachine(const std::string& classPath, std::vector<std::string> options = {});

}  // namespace oxli::test

#endif  // OXLI_TEST_SUPPORT_VIRTUAL_MACHINE_H
