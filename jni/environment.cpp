#include "jni/environment.h"

#include <string>

#include "jni/base/boundary.h"
#include "jni/base/text.h"
#include "jni/jenv/jenv.h"
#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"

namespace oxli::jni {

namespace {

// Owns a cache that is being built: unless kept, it is taken apart with all its references.
class NewCache {
 public:
  explicit NewCache(JNIEnv* env) : env_(env), cache_(std::make_unique<JEnv>()) {}
  NewCache(const NewCache&) = delete;
  NewCache& operator=(const NewCache&) = delete;
  ~NewCache() {
    if (cache_) cache_->done(env_);
  }

  JEnv& operator*() const { return *cache_; }
  void keep() { static_cast<void>(cache_.release()); }

 private:
  JNIEnv* env_;
  std::unique_ptr<JEnv> cache_;
};

jint openEnvironment(JNIEnv* env, jstring settings) {
  NewCache cache(env);
  env->GetJavaVM(&JEnv::spVm);
  if (!(*cache).init(env)) return OX_ERR_INTERNAL;
  const UtfChars text(env, settings);
  if (text.notTaken("Java_org_quendel_oxli_impl_OxliImpl_env_1open settings")) {
    return OX_ERR_INTERNAL;
  }
  const std::string forJava = std::string(text.get()) + ";platform=java";
  // Whatever the gateway answers, closing the environment again is the caller's.
  cache.keep();
  return ox_env_open(forJava.c_str());
}

// The environment of the calling thread; attached tells whether this call attached it.
JNIEnv* exitEnvironment(JavaVM& vm, bool& attached) {
  void* env = nullptr;
  switch (vm.GetEnv(&env, JNI_VERSION_1_6)) {
    case JNI_EDETACHED:
      ox_log_info("[ExitEvent]: attach java to new thread.");
      vm.AttachCurrentThread(&env, nullptr);
      if (!env) ox_log_error("[ExitEvent]: Can't attach exit event thread to java environment.");
      attached = env != nullptr;
      break;
    case JNI_OK:
      ox_log_info("[ExitEvent]: jni env found.");
      break;
    case JNI_EVERSION:
      ox_log_info("[ExitEvent]: jni env invalid version.");
      break;
    default:
      break;
  }
  return static_cast<JNIEnv*>(env);
}

void deliverExitEvent(const ExitEventData& data) {
  bool attached = false;
  JNIEnv* const env = exitEnvironment(*data.vm, attached);
  if (!env) {
    ox_log_error("[ExitEvent]: Can't get java environment.");
    return;
  }
  // Read before anything that takes time: nothing keeps the environment open meanwhile.
  const JEnv* const cache = JEnv::spInstance;
  const jmethodID onExitEvent = cache ? cache->exitEventSubscriber.onExitEvent : nullptr;
  if (!onExitEvent || !data.handler.get()) {
    if (attached) data.vm->DetachCurrentThread();
    return;
  }
  // An earlier event's exception, or one of the Java code that this thread is inside.
  if (env->ExceptionCheck()) return;
  ox_log_info("[ExitEvent]: Invoke java onExitEvent.");
  env->CallVoidMethod(data.handler.get(), onExitEvent);
  // The exception stays with the thread: detaching would hand it to the thread's uncaught handler.
  if (env->ExceptionCheck()) return;
  ox_log_info("[ExitEvent]: After Invoke java onExitEvent.");
  data.vm->DetachCurrentThread();
}

}  // namespace

}  // namespace oxli::jni

using namespace oxli::jni;

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_env_1open(JNIEnv* env, jclass,
                                                                     jstring settings) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    if (JEnv::spInstance) return OX_ERR_INVALIDSTATE;
    if (!settings) return OX_ERR_INVALIDARGUMENT;
    return openEnvironment(env, settings);
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_env_1close(JNIEnv* env, jclass) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    // First, because callbacks that the gateway makes while it closes need the cache.
    const jint result = ox_env_close();
    if (const std::unique_ptr<JEnv> cache{JEnv::spInstance}) cache->done(env);
    return result;
  });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_env_1register_1exithandler(
    JNIEnv* env, jclass, jobject handler) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&]() -> jint {
    if (!sExitEventData) sExitEventData = std::make_unique<ExitEventData>();
    ExitEventData& data = *sExitEventData;
    data.handler.drop(env);
    env->GetJavaVM(&data.vm);
    if (!data.handler.hold(
            env, handler,
            "Java_org_quendel_oxli_impl_OxliImpl_env_1register_1exithandler handler")) {
      return OX_ERR_INTERNAL;
    }
    return handler ? ox_env_register_exithandler(&ExitEventCB, &data)
                   : ox_env_register_exithandler(nullptr, nullptr);
  });
}

void ExitEventCB(void* data) {
  const auto* const record = static_cast<const ExitEventData*>(data);
  if (!record || !record->vm) return;
  atBoundary<bool>(false, [&] {
    deliverExitEvent(*record);
    return true;
  });
}
