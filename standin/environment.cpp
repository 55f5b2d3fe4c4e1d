#include <dlfcn.h>

#include <cstdarg>

#include "standin/gateway.h"
#include "utils/string_utils.h"

using namespace standin;

namespace {

std::FILE* openLog(const std::string& where) {
  if (where.empty()) return nullptr;
  if (where == "stderr") return stderr;
  require(where.compare(0, 5, "file:") == 0);
  std::FILE* const file = std::fopen(where.c_str() + 5, "ae");
  require(file);
  return file;
}

void useLog(std::FILE* file) {
  std::FILE* const previous = std::exchange(gateway().log, file);
  if (previous && previous != stderr) std::fclose(previous);
}

void write(const char* level, const std::string& text) {
  const std::string line = std::string(level) + ": " + text;
  if (gateway().recording) gateway().logLines.push_back(line);
  if (!gateway().log) return;
  std::fprintf(gateway().log, "%s\n", line.c_str());
  std::fflush(gateway().log);
}

int log(const char* function, const char* level, const char* text, va_list* args = nullptr) {
  return call(function, {text}, [&] {
    require(text);
    const std::string line = args ? oxutils::StringUtils::vformat(text, *args) : text;
    const Lock lock(gateway().mutex);
    write(level, line);
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
  require(gateway().open, OX_ERR_INVALIDSTATE);
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
    const Properties settings = parse(text);
    require(!gateway().open, OX_ERR_INVALIDSTATE);
    const auto exitAfter = number<std::uint32_t>(settings, "exit_after", 0);
    useLog(openLog(settings.get("log")));
    if (exitAfter > 0) startExitThread(std::chrono::milliseconds(exitAfter));
    gateway().open = true;
    write("info", "stand-in gateway, in process: its streams end with this process");
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
    useLog(nullptr);
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
