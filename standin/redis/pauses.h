// Times that the writers and readers of a server agree about.
#ifndef OXLI_STANDIN_REDIS_PAUSES_H
#define OXLI_STANDIN_REDIS_PAUSES_H

#include <algorithm>
#include <chrono>

#include "standin/objects.h"

namespace standin::redis {

// How often a publisher says that it is alive, and how often readers look.
constexpr std::chrono::milliseconds kBeat(1000);
constexpr std::chrono::milliseconds kLookInterval(500);
// A publisher that has said nothing for that many looks has died. Looks are counted rather than
// time, because nobody can say anything while the server does not answer.
constexpr int kLooksUntilExpired = 7;

// The pauses between attempts to connect: they double from 10 ms to 1 s, until a connection has
// lasted for a second.
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
