// Converts addresses to Java handles and back, and reads values at unaligned addresses.
#ifndef OXLI_JNI_BASE_MEMORY_H
#define OXLI_JNI_BASE_MEMORY_H

#include <jni.h>

#include <cstdint>
#include <cstring>

namespace oxli::jni {

// Converts an address to a handle, the Java `long` that stands for it; null becomes 0.
inline jlong toHandle(const void* address) {
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(address));
}

// Converts a handle back to the address; 0 becomes null.
template <class T>
T* fromHandle(jlong handle) {
  return reinterpret_cast<T*>(static_cast<std::intptr_t>(handle));
}

// Reads a value of the gateway's memory, whose address need not be aligned.
template <class T>
T load(const void* address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_MEMORY_H
