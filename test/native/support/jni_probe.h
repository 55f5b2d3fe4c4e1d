#ifndef OXLI_TEST_NATIVE_SUPPORT_JNI_PROBE_H
#define OXLI_TEST_NATIVE_SUPPORT_JNI_PROBE_H

#include <jni.h>

#include <string>
#include <vector>

namespace oxli::test {

// Stands between the library and one thread's JNI functions: counts what is taken and given back,
// notes each call that JNI forbids while an exception is pending, and fails the n-th call on
// demand. One at a time.
class JniProbe {
 public:
  explicit JniProbe(JNIEnv* env);
  JniProbe(const JniProbe&) = delete;
  JniProbe& operator=(const JniProbe&) = delete;
  ~JniProbe();

  enum class Fault {
    kThrows,    // any call that runs Java or makes something leaves an exception pending
    kMakesNone  // a call that makes something gives null and leaves nothing pending
  };
  // The n-th call from now on that can fail so does, once; n counts from 1.
  void failAt(int n, Fault fault);
  // Stops failing; whether the fault has happened.
  bool disarm();

  struct Counts {
    int globals = 0;   // NewGlobalRef less DeleteGlobalRef
    int borrowed = 0;  // characters and array elements taken less given back
    int locals = 0;    // local references made less deleted
    int objects = 0;   // NewObject calls
    int lookups = 0;   // class and method lookups
    int arrays = 0;    // new primitive arrays

    bool operator==(const Counts& other) const {
      return globals == other.globals && borrowed == other.borrowed && locals == other.locals &&
             objects == other.objects && lookups == other.lookups && arrays == other.arrays;
    }
  };
  Counts counts;
  std::vector<std::string> forbidden;

 private:
  template <auto Function, unsigned Traits>
  friend struct Hook;

  // True when this call is the one to fail.
  bool failsNow(const char* name, unsigned traits);
  void count(unsigned traits, bool made);

  JNIEnv* env_;
  const JNINativeInterface_* real_;
  JNINativeInterface_ hooked_;
  jclass injected_;
  int failIn_ = 0;
  Fault fault_ = Fault::kThrows;
  bool fired_ = false;
  bool insideComposed_ = false;
};

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_JNI_PROBE_H
