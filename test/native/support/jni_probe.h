#ifndef OXLI_TEST_NATIVE_SUPPORT_JNI_PROBE_H
#define OXLI_TEST_NATIVE_SUPPORT_JNI_PROBE_H

#include <jni.h>

#include <functional>
#include <string>
#include <vector>

namespace oxli::test {

// Wraps the JNI functions of one thread: counts what is acquired and released, records each call
// that JNI forbids while an exception is pending, and fails the n-th call on demand. Only one
// object may exist at a time.
class JniProbe {
 public:
  explicit JniProbe(JNIEnv* env);
  JniProbe(const JniProbe&) = delete;
  JniProbe& operator=(const JniProbe&) = delete;
  ~JniProbe();

  enum class Fault {
    kThrows,      // a call that runs Java or makes an object leaves an exception pending
    kReturnsNull  // a call that makes an object returns null and leaves no exception pending
  };
  // Fails, once, the n-th of the following calls that can fail in this way; n counts from 1.
  void failAt(int n, Fault fault);
  // Cancels the fault if it has not happened. Returns whether it has happened.
  bool disarm();

  struct Counts {
    int globals = 0;         // NewGlobalRef less DeleteGlobalRef
    int acquired = 0;        // characters and array elements acquired less released
    int locals = 0;          // local references made less deleted
    int objects = 0;         // new objects and arrays
    int calls = 0;           // hooked calls of all kinds
    int exceptionTests = 0;  // ExceptionOccurred calls
  };
  Counts counts;
  std::vector<std::string> forbidden;
  // Called when characters or array elements are released; may be empty.
  std::function<void()> onRelease;

 private:
  template <auto Function, unsigned Traits>
  friend struct Hook;

  // Returns whether this call is the one to fail.
  bool failsNow(const char* name, unsigned traits);
  void count(unsigned traits, bool made);

  JNIEnv* env_;
  const JNINativeInterface_* real_;
  JNINativeInterface_ hooked_;
  jclass injected_;
  int failIn_ = 0;
  Fault fault_ = Fault::kThrows;
  bool failed_ = false;
  bool insideComposed_ = false;
};

}  // namespace oxli::test

#endif  // OXLI_TEST_NATIVE_SUPPORT_JNI_PROBE_H
