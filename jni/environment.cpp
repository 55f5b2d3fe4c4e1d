#include "jni/environment.h"

#include <string>

#include "jni/base/boundary.h"
#include "jni/base/failure.h"
#include "jni/base/strings.h"
#include "jni/jenv/jenv.h"
#include "jni/oxjni.h"
#include "org_quendel_oxli_impl_OxliImpl.h"
#include "oxli.h"

namespace oxli::jni {

namespace {

// Owns a new class cache. Releases its references and deletes it at the end of the scope unless it
// is released.
class NewClasses {
 public:
  explicit NewClasses(JNIEnv* env) : env_(env), classes_(std::make_unique<JEnv>()) {}
  NewClasses(const NewClasses&) = delete;
  NewClasses& operator=(const NewClasses&) = delete;
  ~NewClasses() {
    if (classes_) classes_->done(env_);
  }

  bool init() { return classes_->init(env_); }
  // Transfers the cache to closeEnvironment, which finds it as JEnv::spInstance.
  void release() { static_cast<void>(classes_.release()); }

 private:
  JNIEnv* env_;
  std::unique_ptr<JEnv> classes_;
};

jint openEnvironment(JNIEnv* env, jstring settings) {
  NewClasses classes(env);
  env->GetJavaVM(&JEnv::spVm);
  if (!classes.init()) return OX_ERR_INTERNAL;
  const UtfChars chars(env, settings, OXLI_STEP("env_1open settings"));
  if (!chars.ok()) return OX_ERR_INTERNAL;
  const std::string gatewaySettings = std::string(chars.get()) + ";platform=java";
  // The cache stays even if the gateway fails: the caller closes the environment in either case.
  classes.release();
  return ox_env_open(gatewaySettings.c_str());
}

jint closeEnvironment(JNIEnv* env) {
  // The gateway is closed first, because the callbacks that it calls meanwhile need the class
  // cache.
  const jint result = ox_env_close();
  if (const std::unique_ptr<JEnv> classes{JEnv::spInstance}) classes->done(env);
  return result;
}

jint registerExitHandler(JNIEnv* env, jobject handler) {
  if (!sExitEventData) sExitEventData = std::make_unique<ExitEventData>();
  ExitEventData& data = *sExitEventData;
  data.handler.release(env);
  env->GetJavaVM(&data.vm);
  if (!data.handler.acquire(env, handler, OXLI_STEP("env_1register_1exithandler handler"))) {
    return OX_ERR_INTERNAL;
  }
  return handler ? ox_env_register_exithandler(&ExitEventCB, &data)
                 : ox_env_register_exithandler(nullptr, nullptr);
}

// Returns the JNIEnv of the calling thread, attaching the thread if necessary, or null. `attached`
// receives whether this call has attached it.
JNIEnv* exitEventEnv(JavaVM& vm, bool& attached) {
  void* env = nullptr;
  attached = false;
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
  JNIEnv* const env = exitEventEnv(*data.vm, attached);
  if (!env) {
    ox_log_error("[ExitEvent]: Can't get java environment.");
    return;
  }
  // Reads the method before the log call below, during which another thread may delete the class
  // cache.
  const JEnv* const classes = JEnv::spInstance;
  const jmethodID onExitEvent = classes ? classes->exitEventSubscriber.onExitEvent : nullptr;
  if (!onExitEvent || !data.handler.get()) {
    if (attached) data.vm->DetachCurrentThread();
    return;
  }
  // An earlier event, or Java code that is still active on this thread, may have left an exception.
  if (env->ExceptionCheck()) {
    ox_log_error("[ExitEvent]: java exception pending, onExitEvent not invoked.");
    return;
  }
  ox_log_info("[ExitEvent]: Invoke java onExitEvent.");
  env->CallVoidMethod(data.handler.get(), onExitEvent);
  // The thread stays attached: detaching it would pass the exception to the uncaught exception
  // handler.
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
  return atBoundary<jint>(OX_ERR_INTERNAL, [&] { return closeEnvironment(env); });
}

JNIEXPORT jint JNICALL Java_org_quendel_oxli_impl_OxliImpl_env_1register_1exithandler(
    JNIEnv* env, jclass, jobject handler) {
  return atBoundary<jint>(OX_ERR_INTERNAL, [&] { return registerExitHandler(env, handler); });
}

void ExitEventCB(void* data) {
  const auto* const record = static_cast<const ExitEventData*>(data);
  if (!record || !record->vm) return;
  atBoundary([&] { deliverExitEvent(*record); });
}
