// The intervals that the writers and readers of a server share.
#ifndef OXLI_STANDIN_REDIS_PAUSES_H
#define OXLI_STANDIN_REDIS_PAUSES_H

#include <algorithm>
#include <chrono>

#include "standin/objects.h"

namespace standin::redis {

// The interval at which a publisher increments its heartbeat counter, and the interval at which
// these counters are checked.
constexpr std::chrono::milliseconds kHeartbeatInterval(1000);
constexpr std::chrono::milliseconds kCheckInterval(500);
// A publisher is removed when its heartbeat counter has not changed for that many checks. Checks
// are counted instead of time, because no counter changes while the server does not answer.
constexpr int kChecksUntilExpired = 7;

// The pauses between attempts to connect. They double from 10 ms to 1 s, and start at 10 ms again
// after a connection that has lasted for more than a second.
class Pauses {
 public:
  void onEstablished() { since_ = Clock::now(); }
  std::chrono::milliseconds next() {
    const bool lasted =
        since_ != Clock::time_point() && Clock::now() - since_ > std::chrono::seconds(1);
    since_ = {};
    const std::chrono::milliseconds pause = lasted ? kFirst : next_;
    next_ = std::min(2 * pause, kLongest);
    return pause;
  }

 private:
  static constexpr std::chrono::milliseconds kFirst{10}, kLongest{1000};

  std::chrono::milliseconds next_ = kFirst;
  Clock::time_point since_;
};

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_PAUSES_H
