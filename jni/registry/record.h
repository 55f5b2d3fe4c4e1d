// What the records of connections and listeners share: a life that outlasts the calls in progress,
// and the environment of the thread that is inside a gateway call.
#ifndef OXLI_JNI_REGISTRY_RECORD_H
#define OXLI_JNI_REGISTRY_RECORD_H

#include <jni.h>

#include <atomic>

namespace oxli::jni {

// Memory that lives until its last pin is gone. A new record has one: that of its registry entry,
// or of the operation that is about to register it. A subscriber may destroy the object whose
// gateway call it runs in; the calls in progress still pin the memory then, although the record's
// references are gone.
template <class Record>
class CountedRecord {
 public:
  CountedRecord() = default;
  CountedRecord(const CountedRecord&) = delete;
  CountedRecord& operator=(const CountedRecord&) = delete;

  void pin() noexcept { pins_.fetch_add(1, std::memory_order_relaxed); }
  void unpin() noexcept {
    if (pins_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete static_cast<Record*>(this);
  }

 protected:
  ~CountedRecord() = default;

 private:
  std::atomic<int> pins_{1};
};

// Pins a record's memory for the scope.
template <class Record>
class Pin {
 public:
  explicit Pin(Record& record) : record_(record) { record_.pin(); }
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;
  ~Pin() { record_.unpin(); }

 private:
  Record& record_;
};

// Brackets a gateway call on a record: callbacks that the gateway makes during the call find an
// environment in the record's `env`, hence that a thread is inside. Brackets nest. A thread that
// leaves restores what it found, unless another thread has entered meanwhile: that one's
// environment stays.
template <class Record>
class InsideCall {
 public:
  InsideCall(Record& record, JNIEnv* env)
      : pin_(record), env_(record.env), mine_(env), before_(record.env.load()) {
    env_.store(env);
  }
  InsideCall(const InsideCall&) = delete;
  InsideCall& operator=(const InsideCall&) = delete;
  ~InsideCall() { env_.compare_exchange_strong(mine_, before_); }

 private:
  Pin<Record> pin_;
  std::atomic<JNIEnv*>& env_;
  JNIEnv* mine_;
  JNIEnv* before_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_REGISTRY_RECORD_H
