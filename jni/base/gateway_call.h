// Tracks the gateway calls on connections and listeners. While a call is in progress, callbacks can
// check that a thread is inside it, and the records that they use stay in memory.
#ifndef OXLI_JNI_BASE_GATEWAY_CALL_H
#define OXLI_JNI_BASE_GATEWAY_CALL_H

#include <jni.h>

#include <atomic>
#include <mutex>

namespace oxli::jni {

class GatewayCalls;

// A record that is deleted when its last pin is removed. It is created with one pin, which belongs
// to its owner: the registry, or the operation that is about to register it. Gateway calls in
// progress add pins, so a subscriber may destroy the object of the gateway call that it runs in.
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

  // Returns the counter of the gateway calls that may use the record: the counter of its
  // connection, or null if it has no connection.
  virtual GatewayCalls* calls() noexcept = 0;

  // The JNIEnv of the thread that is inside a gateway call on this record, or null. Only
  // GatewayCall writes it.
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

// Counts the gateway calls in progress on one connection and its listeners. The gateway may deliver
// a batch of messages in a call, and continue after a callback has destroyed a listener of the
// batch. The records of destroyed listeners are therefore unpinned only while no call is in
// progress. Thread-safe. Acquires its lock only to add or unpin such records.
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
    // This thread stores before it loads, and leave() decrements before it loads: at least one of
    // the two loads the value that the other has written.
    if (inProgress_.load() == 0) unpinRetired();
  }

 private:
  void unpinRetired() noexcept {
    PinnedRecord* next = nullptr;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      // A call that has begun meanwhile may still use records that were added during it.
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

// Stores the calling thread's JNIEnv in the record for the scope of one gateway call, and pins the
// record. The destructor restores the earlier JNIEnv, unless another thread has stored its own
// meanwhile. Scopes may nest.
class GatewayCall {
 public:
  GatewayCall(PinnedRecord& record, JNIEnv* env)
      : pin_(record), record_(record), env_(env), earlierEnv_(record.env.load()) {
    if (GatewayCalls* const calls = record_.calls()) calls->enter();
    record_.env.store(env_);
  }
  GatewayCall(const GatewayCall&) = delete;
  GatewayCall& operator=(const GatewayCall&) = delete;
  ~GatewayCall() {
    record_.env.compare_exchange_strong(env_, earlierEnv_);
    if (GatewayCalls* const calls = record_.calls()) calls->leave();
  }

 private:
  Pin pin_;
  PinnedRecord& record_;
  JNIEnv* env_;
  JNIEnv* earlierEnv_;
};

}  // namespace oxli::jni

#endif  // OXLI_JNI_BASE_GATEWAY_CALL_H
