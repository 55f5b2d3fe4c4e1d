#include "standin/worker.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "standin/environment.h"

namespace standin {
namespace {

// Blocks all signals of this thread, and of those that it starts, until the end of the scope. The
// application's handlers then run on its own threads, and writing to a closed socket raises no
// SIGPIPE.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

Worker::Worker() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (event_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

Worker::~Worker() {
  close(event_);
}

std::shared_ptr<Worker> Worker::start(std::function<void(Worker&)> body) {
  auto& workers = environment().workers;
  // Threads that have ended are joined here as well, so that they do not accumulate.
  for (auto at = workers.begin(); at != workers.end();) {
    const bool ended = (*at)->ended_;
    if (ended) (*at)->thread_.join();
    at = ended ? workers.erase(at) : std::next(at);
  }
  auto worker = std::make_shared<Worker>();
  workers.reserve(workers.size() + 1);
  const SignalsBlocked blocked;
  worker->thread_ = std::thread([body = std::move(body), &worker = *worker]() mutable {
    body(worker);
    body = {};  // may own what must be released before the thread is joined
    worker.ended_ = true;
  });
  workers.push_back(worker);
  return worker;
}

void Worker::stop() {
  stopped_ = true;
  const std::uint64_t one = 1;
  // Fails only if the event is signalled already.
  static_cast<void>(!write(event_, &one, sizeof one));
}

void Worker::pause(std::chrono::milliseconds time) const {
  pollfd stopped{event_, POLLIN, 0};
  poll(&stopped, 1, static_cast<int>(time.count()));
}

void joinWorkers() {
  std::vector<std::shared_ptr<Worker>> stopped;
  auto& workers = environment().workers;
  for (auto at = workers.begin(); at != workers.end();) {
    if ((*at)->isStopped()) stopped.push_back(*at);
    at = (*at)->isStopped() ? workers.erase(at) : std::next(at);
  }
  const MutexUnlock unlock(sMutex);
  for (const auto& worker : stopped) worker->thread_.join();
}

}  // namespace standin
