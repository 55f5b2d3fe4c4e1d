// Keeps C++ exceptions inside the library: they must not unwind the frames of the virtual machine
// or of the gateway library.
#ifndef OXLI_JNI_BASE_BOUNDARY_H
#define OXLI_JNI_BASE_BOUNDARY_H

#include <utility>

namespace oxli::jni {

// Returns the result of `body`, or `onUnwind` if it throws. Every native, exported function and
// callback that can throw runs its body through this function. The local objects of the body have
// been destroyed when this function returns.
template <class Result, class Body>
Result atBoundary(Result onUnwind, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return onUnwind;
  }
}

// Runs `body`, which has no result. Discards an exception that it throws.
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
