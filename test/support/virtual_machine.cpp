#include "test/support/virtual_machine.h"

namespace oxli::test {

JNIEnv* startVirtualMachine(const std::string& classPath, std::vector<std::string> options) {
  options.push_back("-Djava.class.path=" + classPath);
  std::vector<JavaVMOption> vmOptions;
  for (std::string& option : options) vmOptions.push_back({option.data(), nullptr});
  JavaVMInitArgs args = {};
  args.version = JNI_VERSION_1_8;
  args.nOptions = static_cast<jint>(vmOptions.size());
  args.options = vmOptions.data();
  JavaVM* vm = nullptr;
  void* created = nullptr;
  if (JNI_CreateJavaVM(&vm, &created, &args) != JNI_OK) return nullptr;
  auto* const env = static_cast<JNIEnv*>(created);
  // FindClass initialises the class, which loads the library.
  return env->FindClass("org/quendel/oxli/impl/OxliImpl") ? env : nullptr;
}

}  // namespace oxli::test

extern "C" {

// Makes the virtual machine accept this program as the library: it searches for this function when
// Java code loads the library by its name.
JNIEXPORT jint JNI_OnLoad_oxli_jni(JavaVM*, void*);
JNIEXPORT jint JNI_OnLoad_oxli_jni(JavaVM*, void*) {
  return JNI_VERSION_1_8;
}
}
