#ifndef OXLI_JNI_BASE_HANDLES_H
#define OXLI_JNI_BASE_HANDLES_H

#include <jni.h>

#include <cstdint>

namespace oxli::jni {

// Addresses as Java sees them: a `long`, 0 for null.
inline jlong toHandle(const void* address) {
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(address));
}

template <class T>
T* fromHandle(jlong handle) {
  return reinterpret_cast<T*>(static_cast<std::intptr_t>(handle));
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_HANDLES_H
