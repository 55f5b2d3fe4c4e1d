#ifndef OXLI_JNI_BASE_LOAD_H
#define OXLI_JNI_BASE_LOAD_H

#include <cstring>

namespace oxli::jni {

// The value at an address of the gateway's choice, aligned or not.
template <class T>
T load(const void* address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_LOAD_H
