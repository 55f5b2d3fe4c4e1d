#ifndef OXLI_JNI_BASE_BOUNDARY_H
#define OXLI_JNI_BASE_BOUNDARY_H

#include <utility>

namespace oxli::jni {

// The edge of the library: natives, exported functions and callbacks run what may throw through
// this, because neither the virtual machine nor the gateway can be unwound through. What the body
// held has been released when `onUnwind` is returned.
template <class Result, class Body>
Result atBoundary(Result onUnwind, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return onUnwind;
  }
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_BOUNDARY_H
