// Runs the bodies of natives and exported functions that need the class cache.
#ifndef OXLI_JNI_JENV_WITH_CLASSES_H
#define OXLI_JNI_JENV_WITH_CLASSES_H

#include <jni.h>

#include <utility>

#include "jni/base/boundary.h"
#include "jni/jenv/jenv.h"
#include "oxli.h"

namespace oxli::jni {

// Returns the result code of `body`, which receives the class cache. While the environment is
// closed, returns OX_ERR_INVALIDSTATE without running it. Returns OX_ERR_INTERNAL if it throws.
template <class Body>
jint resultWithClasses(Body&& body) noexcept {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    JEnv* const classes = JEnv::spInstance;
    return classes ? std::forward<Body>(body)(*classes) : OX_ERR_INVALIDSTATE;
  });
}

// Returns the object that `body` returns; null while the environment is closed, or if `body`
// throws.
template <class Object = jobject, class Body>
Object objectWithClasses(Body&& body) noexcept {
  return atBoundary<Object>(nullptr, [&]() -> Object {
    JEnv* const classes = JEnv::spInstance;
    return classes ? std::forward<Body>(body)(*classes) : nullptr;
  });
}

// Runs `body`, which has no result; does nothing while the environment is closed.
template <class Body>
void runWithClasses(Body&& body) noexcept {
  atBoundary([&] {
    if (JEnv* const classes = JEnv::spInstance) std::forward<Body>(body)(*classes);
  });
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_JENV_WITH_CLASSES_H
