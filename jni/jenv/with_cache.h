#ifndef OXLI_JNI_JENV_WITH_CACHE_H
#define OXLI_JNI_JENV_WITH_CACHE_H

#include <jni.h>

#include <utility>

#include "jni/base/boundary.h"
#include "jni/jenv/jenv.h"
#include "oxli.h"

namespace oxli::jni {

// A native that returns a result code and needs the class cache: `body` gets the cache; without
// one the result is OX_ERR_INVALIDSTATE, before anything else is looked at.
template <class Body>
jint resultWithCache(Body&& body) noexcept {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    JEnv* const cache = JEnv::spInstance;
    return cache ? std::forward<Body>(body)(*cache) : OX_ERR_INVALIDSTATE;
  });
}

// The same for what returns nothing.
template <class Body>
void doWithCache(Body&& body) noexcept {
  atBoundary<bool>(false, [&] {
    if (JEnv* const cache = JEnv::spInstance) std::forward<Body>(body)(*cache);
    return true;
  });
}

// The same for what returns an object: null without a cache.
template <class Object = jobject, class Body>
Object objectWithCache(Body&& body) noexcept {
  return atBoundary<Object>(nullptr, [&]() -> Object {
    JEnv* const cache = JEnv::spInstance;
    return cache ? std::forward<Body>(body)(*cache) : nullptr;
  });
}

}  // namespace oxli::jni

#endif  // OXLI_JNI_JENV_WITH_CACHE_H
