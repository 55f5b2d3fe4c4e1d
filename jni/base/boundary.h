// Keeps C++ exceptions inside the library: neither the virtual machine nor the gateway library can
// be unwound through.
#ifndef OXLI_JNI_BASE_BOUNDARY_H
#define OXLI_JNI_BASE_BOUNDARY_H

#include <utility>

namespace oxli::jni {

// Returns the result of `body`, or `onUnwind` if it throws. Every native, exported function and
// callback runs its body through this. What the body has acquired is released by its destructors
// before this returns.
template <class Result, class Body>
Result atBoundary(Result onUnwind, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return onUnwind;
  }
}

// The same for a body without a result.
template <class Body>
void atBoundary(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    return;
  }
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_BOUNDARY_H
