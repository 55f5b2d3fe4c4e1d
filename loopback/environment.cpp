#include <cstdarg>
#include <cstdio>

#include "loopback/call.h"
#include "loopback/environment.h"
#include "utils/string_utils.h"

using namespace inproc;

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const {
    if (file != stderr) std::fclose(file);
  }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Where log lines go. Its lock is taken last and nothing is called under it.
struct Log {
  std::mutex mutex;
  File file;
};

Log& theLog() {
  static Log& lasting = *new Log;
  return lasting;
}

File openLog(const std::string& where) {
  if (where.empty()) return nullptr;
  if (where == "stderr") return File(stderr);
  require(where.compare(0, 5, "file:") == 0, OX_ERR_INVALIDARGUMENT);
  File file(std::fopen(where.c_str() + 5, "a"));
  require(file != nullptr, OX_ERR_INVALIDARGUMENT);
  return file;
}

void useLog(File file) {
  const std::lock_guard<std::mutex> lock(theLog().mutex);
  theLog().file = std::move(file);
}

void write(const char* level, const std::string& text) {
  const std::string line = std::string(level) + ": " + text;
  if (watched.load(std::memory_order_relaxed)) noteLog(line);
  const std::lock_guard<std::mutex> lock(theLog().mutex);
  if (!theLog().file) return;
  std::fprintf(theLog().file.get(), "%s\n", line.c_str());
  std::fflush(theLog().file.get());
}

int log(const char* function, const char* level, const char* text) {
  return call(function, {text}, [&] {
    require(text, OX_ERR_INVALIDARGUMENT);
    write(level, text);
    return OX_ERR_OK;
  });
}

int log(const char* function, const char* level, const char* format, va_list args) {
  return call(function, {format}, [&] {
    require(format, OX_ERR_INVALIDARGUMENT);
    write(level, oxutils::StringUtils::vformat(format, args));
    return OX_ERR_OK;
  });
}

std::unique_ptr<ExitTimer> startExitTimer(std::chrono::milliseconds delay) {
  auto timer = std::make_unique<ExitTimer>();
  timer->thread = std::thread([own = timer.get(), delay] {
    {
      Lock lock(gateway().mutex);
      if (own->changed.wait_for(lock, delay, [own] { return own->cancelled; })) return;
      own->raised = true;
    }
    raiseExitEvent();
  });
  return timer;
}

// An exit callback that has begun may itself be closing the environment, or wait for a lock of the
// host's that the closing thread holds: its thread is left to end by itself.
void stopExitTimer(Lock& lock, std::unique_ptr<ExitTimer> timer) {
  if (!timer) return;
  timer->cancelled = true;
  timer->changed.notify_all();
  if (timer->raised) return timer->thread.detach();
  lock.unlock();
  timer->thread.join();
}

}  // namespace

bool inproc::raiseExitEvent() {
  Lock lock(gateway().mutex);
  const ox_exit_cb_t callback = gateway().exitCallback;
  void* const data = gateway().exitData;
  lock.unlock();
  if (callback) callback(data);
  return callback != nullptr;
}

int ox_env_open(const char* text) {
  return call(__func__, {text}, [&] {
    const Lock lock(gateway().mutex);
    const Properties settings = parse(text);
    require(!gateway().open, OX_ERR_INVALIDSTATE);
    const auto exitAfter = number<std::uint32_t>(settings, "exit_after", 0);
    useLog(openLog(settings.get("log")));
    if (exitAfter > 0) {
      gateway().exitTimer = startExitTimer(std::chrono::milliseconds(exitAfter));
    }
    gateway().open = true;
    write("info", "in-process loopback gateway: its streams end with this process");
    return OX_ERR_OK;
  });
}

int ox_env_close(void) {
  return call(__func__, {}, [&] {
    Lock lock = enter();
    while (!gateway().connections.all().empty()) {
      const std::shared_ptr<Connection> conn = gateway().connections.all().begin()->second;
      destroyConnection(conn);
    }
    gateway().streams.clear();
    gateway().open = false;
    useLog(nullptr);
    stopExitTimer(lock, std::move(gateway().exitTimer));
    return OX_ERR_OK;
  });
}

int ox_env_register_exithandler(ox_exit_cb_t callback, void* data) {
  return call(__func__, {}, [&] {
    const Lock lock(gateway().mutex);
    gateway().exitCallback = callback;
    gateway().exitData = data;
    return OX_ERR_OK;
  });
}

int ox_log_debugstr(const char* text) {
  return log(__func__, "debug", text);
}

int ox_log_tracestr(const char* text) {
  return log(__func__, "trace", text);
}

int ox_log_infostr(const char* text) {
  return log(__func__, "info", text);
}

int ox_log_errorstr(const char* text) {
  return log(__func__, "error", text);
}

int ox_log_info(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = log(__func__, "info", format, args);
  va_end(args);
  return result;
}

int ox_log_error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = log(__func__, "error", format, args);
  va_end(args);
  return result;
}

const char* ox_err_getstr(int code) {
  switch (code) {
    case OX_ERR_OK:
      return "OX_ERR_OK: the operation succeeded";
    case OX_ERR_INTERNAL:
      return "OX_ERR_INTERNAL: the gateway itself failed";
    case OX_ERR_INVALIDARGUMENT:
      return "OX_ERR_INVALIDARGUMENT: an argument is not usable";
    case OX_ERR_INVALIDSTATE:
      return "OX_ERR_INVALIDSTATE: the operation does not fit the object's state";
    case OX_ERR_BUFFERTOOSMALL:
      return "OX_ERR_BUFFERTOOSMALL: the buffer does not hold the result";
    default:
      return "unknown result code";
  }
}
