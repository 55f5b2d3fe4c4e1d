#include "test/native/support/jni_probe.h"

#include <cstdarg>
#include <type_traits>

namespace oxli::test {

namespace {

JniProbe* active = nullptr;

enum Traits : unsigned {
  kRunsJava = 1u << 0,
  kMakes = 1u << 1,
  kMakesLocal = 1u << 2,
  kDeletesLocal = 1u << 3,
  kMakesGlobal = 1u << 4,
  kDeletesGlobal = 1u << 5,
  kAcquires = 1u << 6,
  kReleases = 1u << 7,
  kLegalWhilePending = 1u << 8,
  kObject = 1u << 9,
  // The virtual machine implements it with other functions of the table, which do not count.
  kComposed = 1u << 10,
  kExceptionTest = 1u << 11,
};

template <auto Function>
const char* nameOf() {
  // Contains the name of the function.
  return __PRETTY_FUNCTION__;
}

}  // namespace

// One hooked function: `Function` is the table's member, R(JNIEnv*, Args...).
template <auto Function, unsigned Traits>
struct Hook {
  template <class R, class... Args>
  static R run(JNIEnv* env, Args... args) {
    JniProbe& probe = *active;
    if (probe.insideComposed_) return (probe.real_->*Function)(env, args...);
    if (probe.failsNow(nameOf<Function>(), Traits)) return R();
    if constexpr (std::is_void_v<R>) {
      (probe.real_->*Function)(env, args...);
      probe.count(Traits, true);
    } else {
      probe.insideComposed_ = (Traits & kComposed) != 0;
      const R result = (probe.real_->*Function)(env, args...);
      probe.insideComposed_ = false;
      probe.count(Traits, result != R());
      return result;
    }
  }

  template <class R, class... Args>
  static void install(R (*&entry)(JNIEnv*, Args...)) {
    entry = &run<R, Args...>;
  }
};

#define OXLI_HOOK(function, traits) \
  Hook<&JNINativeInterface_::function, (traits)>::install(hooked_.function)

JniProbe::JniProbe(JNIEnv* env) : env_(env), real_(env->functions), hooked_(*env->functions) {
  const jclass found = env->FindClass("java/lang/ArithmeticException");
  injected_ = static_cast<jclass>(env->NewGlobalRef(found));
  env->DeleteLocalRef(found);

  OXLI_HOOK(FindClass, kMakes | kMakesLocal);
  OXLI_HOOK(GetMethodID, kMakes);
  OXLI_HOOK(GetStaticMethodID, kMakes);
  OXLI_HOOK(NewObjectV, kMakes | kMakesLocal | kObject);
  OXLI_HOOK(CallVoidMethodV, kRunsJava);
  OXLI_HOOK(CallIntMethodV, kRunsJava);
  OXLI_HOOK(CallLongMethodV, kRunsJava);
  OXLI_HOOK(CallObjectMethodV, kRunsJava | kMakesLocal);
  OXLI_HOOK(CallStaticObjectMethodV, kRunsJava | kMakesLocal);
  OXLI_HOOK(NewStringUTF, kMakes | kMakesLocal);
  OXLI_HOOK(NewDirectByteBuffer, kMakes | kMakesLocal | kComposed);
  OXLI_HOOK(NewObjectArray, kMakes | kMakesLocal | kObject);
  OXLI_HOOK(NewBooleanArray, kMakes | kMakesLocal | kObject);
  OXLI_HOOK(NewByteArray, kMakes | kMakesLocal | kObject);
  OXLI_HOOK(SetBooleanArrayRegion, kRunsJava);
  OXLI_HOOK(SetByteArrayRegion, 0);
  OXLI_HOOK(SetObjectArrayElement, kRunsJava);
  OXLI_HOOK(GetStringUTFChars, kMakes | kAcquires);
  OXLI_HOOK(ReleaseStringUTFChars, kReleases | kLegalWhilePending);
  OXLI_HOOK(GetBooleanArrayElements, kMakes | kAcquires);
  OXLI_HOOK(ReleaseBooleanArrayElements, kReleases | kLegalWhilePending);
  OXLI_HOOK(GetArrayLength, 0);
  OXLI_HOOK(GetDirectBufferAddress, kComposed);
  OXLI_HOOK(GetDirectBufferCapacity, kComposed);
  OXLI_HOOK(EnsureLocalCapacity, kRunsJava);
  OXLI_HOOK(IsInstanceOf, 0);
  OXLI_HOOK(NewGlobalRef, kMakes | kMakesGlobal);
  OXLI_HOOK(DeleteGlobalRef, kDeletesGlobal | kLegalWhilePending);
  OXLI_HOOK(DeleteLocalRef, kDeletesLocal | kLegalWhilePending);
  OXLI_HOOK(ExceptionOccurred, kMakesLocal | kLegalWhilePending | kExceptionTest);

  active = this;
  env_->functions = &hooked_;
}

#undef OXLI_HOOK

JniProbe::~JniProbe() {
  env_->functions = real_;
  active = nullptr;
  env_->DeleteGlobalRef(injected_);
}

void JniProbe::failAt(int n, Fault fault) {
  failIn_ = n;
  fault_ = fault;
  failed_ = false;
}

bool JniProbe::disarm() {
  failIn_ = 0;
  return failed_;
}

bool JniProbe::failsNow(const char* name, unsigned traits) {
  if (!(traits & kLegalWhilePending) && real_->ExceptionCheck(env_)) forbidden.emplace_back(name);
  const unsigned canFail = fault_ == Fault::kThrows ? kRunsJava | kMakes : unsigned{kMakes};
  if (failIn_ == 0 || !(traits & canFail) || --failIn_ > 0) return false;
  failed_ = true;
  // The virtual machine refuses a global reference without an exception.
  if (fault_ == Fault::kThrows && !(traits & kMakesGlobal)) {
    real_->ThrowNew(env_, injected_, "injected");
  }
  return true;
}

void JniProbe::count(unsigned traits, bool made) {
  ++counts.calls;
  if (traits & kExceptionTest) ++counts.exceptionTests;
  if (traits & kObject) ++counts.objects;
  if (traits & kDeletesLocal) --counts.locals;
  if (traits & kDeletesGlobal) --counts.globals;
  if (traits & kReleases) {
    --counts.acquired;
    if (onRelease) onRelease();
  }
  if (!made) return;
  if (traits & kMakesLocal) ++counts.locals;
  if (traits & kMakesGlobal) ++counts.globals;
  if (traits & kAcquires) ++counts.acquired;
}

}  // namespace oxli::test
