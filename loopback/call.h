#ifndef OXLI_LOOPBACK_CALL_H
#define OXLI_LOOPBACK_CALL_H

#include <atomic>
#include <initializer_list>
#include <optional>
#include <string>

#include "loopback/settings.h"

namespace inproc {

// True while a test records calls or has a failure prepared; all that a call pays otherwise.
extern std::atomic<bool> watched;
// Records the call; gives the code of a failure that was prepared for it.
std::optional<int> noteCall(const char* function, std::initializer_list<const char*> texts);
void noteLog(const std::string& line);

// The boundary of every ox_ function: nothing that is thrown inside leaves it.
template <class Body>
int call(const char* function, std::initializer_list<const char*> texts, Body&& body) noexcept {
  try {
    if (watched.load(std::memory_order_relaxed)) {
      if (const std::optional<int> failure = noteCall(function, texts)) return *failure;
    }
    return body();
  } catch (const Refused& refused) {
    return refused.code;
  } catch (...) {
    return OX_ERR_INTERNAL;
  }
}

}  // namespace inproc

#endif  // OXLI_LOOPBACK_CALL_H
