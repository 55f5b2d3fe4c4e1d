// Threads of the stand-in gateway's own.
#ifndef OXLI_STANDIN_WORKER_H
#define OXLI_STANDIN_WORKER_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "standin/objects.h"

namespace standin {

// A thread that runs until its body returns, with all signals blocked. It is told to stop and
// joined later, because whoever stops it may have acquired sMutex.
class Worker {
 public:
  // The body must not throw, and returns soon after stop().
  static std::shared_ptr<Worker> start(std::function<void(Worker&)> body) REQUIRES(sMutex);
  Worker();
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void stop();
  bool isStopped() const { return stopped_.load(std::memory_order_relaxed); }
  // A file descriptor that can be read after stop(), for poll().
  int stopEvent() const { return event_; }
  // Sleeps until the time is over or the worker is told to stop.
  void pause(std::chrono::milliseconds time) const;

 private:
  friend void joinWorkers();

  const int event_;
  std::atomic<bool> stopped_{false};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

// Waits for the workers that were told to stop. Releases sMutex meanwhile.
void joinWorkers() REQUIRES(sMutex);

}  // namespace standin

#endif  // OXLI_STANDIN_WORKER_H
