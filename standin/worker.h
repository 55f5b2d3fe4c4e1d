// The threads of the stand-in gateway.
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

// A thread that runs until its body returns, with all signals blocked. stop() does not wait;
// joinWorkers() joins the thread later, because the caller of stop() may have acquired sMutex.
class Worker {
 public:
  // The body must not throw, and must return soon after stop().
  static std::shared_ptr<Worker> start(std::function<void(Worker&)> body) REQUIRES(sMutex);
  Worker();
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void stop();
  bool isStopped() const { return stopped_.load(std::memory_order_relaxed); }
  // A file descriptor that can be read after stop(), for poll().
  int stopEvent() const { return event_; }
  // Sleeps until the time is over or stop() is called.
  void pause(std::chrono::milliseconds time) const;

 private:
  friend void joinWorkers();

  const int event_;
  std::atomic<bool> stopped_{false};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

// Waits until the threads of all stopped workers have ended. Releases sMutex meanwhile.
void joinWorkers() REQUIRES(sMutex);

}  // namespace standin

#endif  // OXLI_STANDIN_WORKER_H
