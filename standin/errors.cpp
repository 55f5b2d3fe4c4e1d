// The result codes and log lines of calls that fail.
#include <exception>

#include "standin/control.h"
#include "standin/log.h"

namespace standin {

int resultOfFailure(const char* function) noexcept {
  int code = OX_ERR_INTERNAL;
  try {
    std::string reason = "unknown exception";
    try {
      throw;
    } catch (Refusal& refusal) {
      code = refusal.code;
      reason = std::move(refusal.reason);
    } catch (const std::exception& exception) {
      reason = exception.what();
    }
    const MutexLock lock(sMutex);
    if (isLogging()) writeLog("error", std::string(function) + ": " + oneLine(reason));
    if (!environment().open) closeLog();  // of an ox_env_open that is refused
  } catch (...) {                         // no memory for the line
  }
  return code;
}

}  // namespace standin

const char* ox_err_getstr(int code) {
  static constexpr std::pair<int, const char*> kStrings[] = {
      {OX_ERR_OK, "OX_ERR_OK: the operation succeeded"},
      {OX_ERR_INTERNAL, "OX_ERR_INTERNAL: the gateway itself failed"},
      {OX_ERR_INVALIDARGUMENT, "OX_ERR_INVALIDARGUMENT: an argument is invalid; see the log"},
      {OX_ERR_INVALIDSTATE,
       "OX_ERR_INVALIDSTATE: the object's state does not allow the call; see the log"},
      {OX_ERR_BUFFERTOOSMALL, "OX_ERR_BUFFERTOOSMALL: the buffer is too small for the result"},
      {standin::kQueueFull, "STANDIN_ERR_QUEUEFULL: the queue of a receiving connection is full"},
      {standin::kNoServer,
       "STANDIN_ERR_NOSERVER: the server is not reached, or refuses the connection; see the log"},
      {standin::kWindowFull,
       "STANDIN_ERR_WINDOWFULL: the server acknowledges too slowly; the post is not sent"},
      {standin::kNotAcknowledged,
       "STANDIN_ERR_NOTACKNOWLEDGED: the server has not acknowledged in time what was posted"}};
  for (const auto& [known, string] : kStrings) {
    if (known == code) return string;
  }
  return "unknown result code";
}
