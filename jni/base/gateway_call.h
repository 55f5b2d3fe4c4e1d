// Brackets the gateway calls on connections and listeners: while one is in progress, callbacks find
// out that a thread is inside, and the records that they use stay in memory.
#ifndef OXLI_JNI_BASE_GATEWAY_CALL_H
#define OXLI_JNI_BASE_GATEWAY_CALL_H

#include <jni.h>

#include <atomic>
#include <mutex>

namespace oxli::jni {

class GatewayCalls;

// A record that is freed with its last pin. It is made with one pin, that of its owner: the
// registry, or the operation that is about to register it. Calls in progress add theirs, so a
// subscriber may destroy the object whose gateway call it runs in.
class PinnedRecord {
 public:
  PinnedRecord() = default;
  PinnedRecord(const PinnedRecord&) = delete;
  PinnedRecord& operator=(const PinnedRecord&) = delete;
  virtual ~PinnedRecord() = default;

  void pin() noexcept { pins_.fetch_add(1, std::memory_order_relaxed); }
  void unpin() noexcept {
    if (pins_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  // Counts the calls that may use the record, those on its connection; null if it has none.
  virtual GatewayCalls* calls() noexcept = 0;

  // The JNIEnv of the thread that is inside a gateway call on this record, or null. Written by
  // GatewayCall alone.
  std::atomic<JNIEnv*> env{nullptr};

 private:
  friend class GatewayCalls;

  std::atomic<int> pins_{1};
  PinnedRecord* nextRetired_ = nullptr;
};

// Pins a record for the scope.
class Pin {
 public:
  explicit Pin(PinnedRecord& record) : record_(record) { record_.pin(); }
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;
  ~Pin() { record_.unpin(); }

 private:
  PinnedRecord& record_;
};

// Counts the gateway calls in progress on one connection and its listeners. The gateway may hand a
// batch of messages over during a call, and go on with it after a callback has destroyed a listener
// of the batch: the records of destroyed listeners are therefore unpinned between calls only.
// Thread-safe. Takes its lock only while there are such records.
class GatewayCalls {
 public:
  void enter() noexcept { inProgress_.fetch_add(1); }
  void leave() noexcept {
    if (inProgress_.fetch_sub(1) == 1 && retired_.load()) unpinRetired();
  }

  bool inProgress() const noexcept { return inProgress_.load() > 0; }

  // Unpins the record as soon as no call is in progress.
  void unpinBetweenCalls(PinnedRecord& record) noexcept {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      record.nextRetired_ = retired_.load();
      retired_.store(&record);
    }
    // After the store, so that either this or the last call that leaves sees the other.
    if (inProgress_.load() == 0) unpinRetired();
  }

 private:
  void unpinRetired() noexcept {
    PinnedRecord* next = nullptr;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      // A call that has begun meanwhile may have added records that it still uses.
      if (inProgress_.load() > 0) return;
      next = retired_.exchange(nullptr);
    }
    while (PinnedRecord* const record = next) {
      next = record->nextRetired_;
      record->unpin();
    }
  }

  std::atomic<int> inProgress_{0};
  std::atomic<PinnedRecord*> retired_{nullptr};
  std::mutex mutex_;
};

// Brackets one gateway call: stores the calling thread's JNIEnv in the record, and restores what it
// found there, unless another thread has entered meanwhile, whose JNIEnv stays. Brackets nest.
class GatewayCall {
 public:
  GatewayCall(PinnedRecord& record, JNIEnv* env)
      : pin_(record), record_(record), entered_(env), found_(record.env.load()) {
    if (GatewayCalls* const calls = record_.calls()) calls->enter();
    record_.env.store(entered_);
  }
  GatewayCall(const GatewayCall&) = delete;
  GatewayCall& operator=(const GatewayCall&) = delete;
  ~GatewayCall() {
    record_.env.compare_exchange_strong(entered_, found_);
    if (GatewayCalls* const calls = record_.calls()) calls->leave();
  }

 private:
  Pin pin_;
  PinnedRecord& record_;
  JNIEnv* entered_;
  JNIEnv* found_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_GATEWAY_CALL_H
