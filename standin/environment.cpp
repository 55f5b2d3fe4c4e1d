#include <dlfcn.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "standin/gateway.h"
#include "utils/string_utils.h"

using namespace standin;

namespace {

void openLog(const std::string& where) {
  if (where.empty()) return;
  gateway().log = stderr;  // where a refusal is written, too
  if (where == "stderr") return;
  if (where.compare(0, 5, "file:") != 0) {
    throw Refusal{OX_ERR_INVALIDARGUMENT, "log=" + where + " is neither stderr nor file:PATH"};
  }
  std::FILE* const file = std::fopen(where.c_str() + 5, "ae");
  if (!file) {
    throw Refusal{OX_ERR_INVALIDARGUMENT,
                  "log=" + where + " cannot be opened: " + std::strerror(errno)};
  }
  gateway().log = file;
}

void closeLog() {
  std::FILE* const log = std::exchange(gateway().log, nullptr);
  if (log && log != stderr) std::fclose(log);
}

// On one line, and as much as someone reads.
std::string printable(const std::string& reason) {
  constexpr std::size_t kMaxLength = 1000;
  std::string line;
  for (const char c : reason.substr(0, kMaxLength)) {
    if (c == '\n') {
      line += "\\n";
    } else {
      line += c;
    }
  }
  return line;
}

int log(const char* function, const char* level, const char* text, va_list* args = nullptr) {
  return call(function, {text}, [&] {
    require(text, "the line is null");
    const std::string line = args ? oxutils::StringUtils::vformat(text, *args) : text;
    const Lock lock(gateway().mutex);
    writeLog(level, line);
  });
}

// How long ox_env_close waits for an exit handler that is running: it may be waiting for a lock of
// the closing thread's.
constexpr std::chrono::seconds kHandlerWait(1);

void startExitThread(std::chrono::milliseconds delay) {
  const auto exit = std::make_shared<ExitThread>();
  exit->thread = std::thread([exit, delay] {
    Lock lock(gateway().mutex);
    if (exit->changed.wait_for(lock, delay, [&] { return exit->stopped; })) return;
    exit->raising = true;
    lock.unlock();
    raiseExitEvent();
    lock.lock();
    exit->raising = false;
    exit->changed.notify_all();
  });
  gateway().exitThread = exit;
}

// Afterwards the thread has ended; one that is still raising the event has not, and keeps the
// library loaded.
void endExitThread(Lock& lock) {
  const std::shared_ptr<ExitThread> exit = std::move(gateway().exitThread);
  if (!exit) return;
  exit->stopped = true;
  exit->changed.notify_all();
  const bool isItself = exit->thread.get_id() == std::this_thread::get_id();
  if (!isItself && exit->changed.wait_for(lock, kHandlerWait, [&] { return !exit->raising; })) {
    lock.unlock();
    exit->thread.join();
    return;
  }
  Dl_info library;
  if (dladdr(&kHandlerWait, &library) != 0) {
    dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
  exit->thread.detach();
}

}  // namespace

namespace standin {

Gateway& gateway() {
  static Gateway& lasting = *new Gateway;
  return lasting;
}

Lock enter() {
  Lock lock(gateway().mutex);
  require(gateway().open, "the environment is closed", OX_ERR_INVALIDSTATE);
  return lock;
}

void destroy(Listener& lsn) {
  detach(lsn);
  lsn.stream.reset();
  gateway().listeners.erase(lsn.handle);
  eraseFrom(lsn.conn->listeners, lsn);
}

void destroy(Publisher& pub) {
  if (pub.isOpen()) closePublisher(pub);
  auto& outgoing = gateway().outgoing;
  for (auto at = outgoing.begin(); at != outgoing.end();) {
    at = at->second->owner == &pub ? outgoing.erase(at) : std::next(at);
  }
  pub.stream.reset();
  pub.scheme.reset();
  gateway().publishers.erase(pub.handle);
  eraseFrom(pub.conn->publishers, pub);
}

void destroy(Connection& conn) {
  for (const auto& lsn : std::vector(conn.listeners)) destroy(*lsn);
  for (const auto& pub : std::vector(conn.publishers)) destroy(*pub);
  conn.state = kClosed;
  conn.changed.notify_all();
  gateway().connections.erase(conn.handle);
}

bool isLogging() {
  return gateway().log || gateway().recording;
}

void writeLog(const char* level, const std::string& line) {
  if (gateway().recording) gateway().logLines.push_back(std::string(level) + ": " + line);
  if (!gateway().log) return;
  std::fprintf(gateway().log, "%s: %s\n", level, line.c_str());
  std::fflush(gateway().log);
}

void logUnknown(const char* function, const Settings& settings) {
  if (!isLogging()) return;
  for (const auto& [key, value] : settings.left()) {
    writeLog("info", std::string(function) + ": unknown key " + printable(key) + " is ignored");
  }
}

int resultOfFailure(const char* function) noexcept {
  int code = OX_ERR_INTERNAL;
  try {
    std::string reason = "no memory, or a fault of the gateway";
    try {
      throw;
    } catch (Refusal& refusal) {
      code = refusal.code;
      reason = std::move(refusal.reason);
    } catch (const std::exception& thrown) {
      reason = thrown.what();
    }
    const Lock lock(gateway().mutex);
    if (isLogging()) writeLog("error", std::string(function) + ": " + printable(reason));
    if (!gateway().open) closeLog();  // of an environment that did not open
  } catch (...) {                     // no memory for the line
  }
  return code;
}

bool raiseExitEvent() {
  Lock lock(gateway().mutex);
  const ox_exit_cb_t callback = gateway().exitCallback;
  void* const data = gateway().exitData;
  lock.unlock();
  if (callback) callback(data);
  return callback != nullptr;
}

}  // namespace standin

int ox_env_open(const char* text) {
  return call(__func__, {text}, [&] {
    const Lock lock(gateway().mutex);
    require(!gateway().open, "the environment is open already", OX_ERR_INVALIDSTATE);
    Settings settings;
    settings.add(text);
    openLog(settings.extract("log"));
    const auto exitAfter = settings.extractNumber<std::uint32_t>("exit_after", 0);
    settings.extract("platform");  // which a Java host adds
    if (exitAfter > 0) startExitThread(std::chrono::milliseconds(exitAfter));
    gateway().open = true;
    writeLog("info", "stand-in gateway: its streams end with this process");
    logUnknown("ox_env_open", settings);
  });
}

int ox_env_close(void) {
  return call(__func__, {}, [] {
    Lock lock = enter();
    while (!gateway().connections.empty()) {
      const std::shared_ptr<Connection> conn = gateway().connections.begin()->second;
      destroy(*conn);
    }
    gateway().open = false;
    closeLog();
    endExitThread(lock);
  });
}

int ox_env_register_exithandler(ox_exit_cb_t callback, void* data) {
  return call(__func__, {}, [&] {
    const Lock lock(gateway().mutex);
    gateway().exitCallback = callback;
    gateway().exitData = data;
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
  const int result = log(__func__, "info", format, &args);
  va_end(args);
  return result;
}

int ox_log_error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = log(__func__, "error", format, &args);
  va_end(args);
  return result;
}
