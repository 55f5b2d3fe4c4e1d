#include "standin/environment.h"

#include <dlfcn.h>

#include <random>

#include "standin/log.h"
#include "standin/transport.h"
#include "standin/worker.h"

namespace standin {

// Raises the exit event after a time, unless it is stopped before.
struct ExitThread {
  std::thread thread GUARDED_BY(sMutex);
  bool stopped GUARDED_BY(sMutex) = false;
  bool raising GUARDED_BY(sMutex) = false;
  Condition changed;
};

namespace {

// How long ox_env_close waits for an exit handler that is running, which may be waiting for a lock
// that the closing thread has acquired.
constexpr std::chrono::seconds kHandlerWait(1);

void startExitThread(std::chrono::milliseconds delay) REQUIRES(sMutex) {
  const auto exit = std::make_shared<ExitThread>();
  exit->thread = std::thread([exit, deadline = Clock::now() + delay] {
    const MutexLock lock(sMutex);
    const auto isStopped = [&exit]() REQUIRES(sMutex) { return exit->stopped; };
    if (exit->changed.waitUntil(sMutex, deadline, isStopped)) return;
    exit->raising = true;
    {
      const MutexUnlock unlock(sMutex);
      raiseExitEvent();
    }
    exit->raising = false;
    exit->changed.notifyAll();
  });
  environment().exitThread = exit;
}

// Stops the exit thread and waits until it has ended. Does not wait if it is called on that thread,
// and waits at most kHandlerWait for the exit handler. In both cases the library stays loaded, so
// that the thread can return.
void endExitThread() REQUIRES(sMutex) {
  const std::shared_ptr<ExitThread> exit = std::move(environment().exitThread);
  if (!exit) return;
  exit->stopped = true;
  exit->changed.notifyAll();
  const auto hasRaised = [&exit]() REQUIRES(sMutex) { return !exit->raising; };
  if (exit->thread.get_id() != std::this_thread::get_id() &&
      exit->changed.waitUntil(sMutex, Clock::now() + kHandlerWait, hasRaised)) {
    std::thread ending = std::move(exit->thread);
    const MutexUnlock unlock(sMutex);
    ending.join();
    return;
  }
  Dl_info library;
  if (dladdr(&sMutex, &library) != 0) {
    dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
  exit->thread.detach();
}

}  // namespace

Mutex sMutex;
static_assert(std::is_trivially_destructible_v<Mutex>, "used while the process ends");

Environment& environment() {
  static Environment& instance = *new Environment;
  return instance;
}

void requireOpenEnvironment() {
  require(environment().open, "the environment is closed", OX_ERR_INVALIDSTATE);
}

std::uint32_t newLifeNumber() {
  std::random_device system;
  for (;;) {
    if (const std::uint32_t number = system()) return number;
  }
}

std::shared_ptr<const Scheme> sharedScheme(const std::string& string) {
  auto& schemes = environment().schemes;
  const auto found = schemes.find(string);
  if (found != schemes.end()) return found->second.lock();
  auto made = std::make_unique<const Scheme>(string);
  const auto entry = schemes.emplace(string, std::weak_ptr<const Scheme>()).first;
  const auto release = [entry](const Scheme* scheme) REQUIRES(sMutex) {
    environment().schemes.erase(entry);
    delete scheme;
  };
  std::shared_ptr<const Scheme> scheme(made.release(), release);
  entry->second = scheme;
  return scheme;
}

bool raiseExitEvent() {
  ox_exit_cb_t callback = nullptr;
  void* data = nullptr;
  {
    const MutexLock lock(sMutex);
    callback = environment().exitCallback;
    data = environment().exitData;
  }
  if (callback) callback(data);
  return callback != nullptr;
}

}  // namespace standin

using namespace standin;

int ox_env_open(const char* string) {
  return call(__func__, {string}, [&] {
    const MutexLock lock(sMutex);
    Environment& env = environment();
    require(!env.open && !env.closing, "the environment is open already", OX_ERR_INVALIDSTATE);
    Settings settings;
    settings.add(string);
    openLog(settings.extract("log"));
    const auto exitAfter = settings.extractNumber<std::uint32_t>("exit_after", 0);
    settings.extract("platform");  // added by Java applications
    if (exitAfter > 0) startExitThread(std::chrono::milliseconds(exitAfter));
    env.open = true;
    // Random, so that the serial numbers of different processes differ.
    env.lastSerial = std::uint64_t{std::random_device()()} << 32;
    writeLog("info", "stand-in gateway: streams without a server end with this process");
    logUnknown("ox_env_open", settings);
  });
}

int ox_env_close(void) {
  return call(__func__, {}, [] {
    const MutexLock lock(sMutex);
    requireOpenEnvironment();
    Environment& env = environment();
    std::vector<std::shared_ptr<Transport>> transports;
    while (!env.connections.empty()) {
      const std::shared_ptr<Connection> conn = env.connections.begin()->second;
      destroy(*conn);
      if (conn->transport) transports.push_back(std::move(conn->transport));
    }
    env.open = false;
    env.closing = true;
    // Discarded posts are logged, not refused: the application cannot close the environment again.
    for (const auto& transport : transports) transport->startClosing();
    for (const auto& transport : transports) transport->close();
    transports.clear();
    // Destroying a listener that another thread is opening does not stop its reader.
    for (const auto& worker : env.workers) worker->stop();
    joinWorkers();
    env.closing = false;
    closeLog();
    endExitThread();
  });
}

int ox_env_register_exithandler(ox_exit_cb_t callback, void* data) {
  return call(__func__, {}, [&] {
    const MutexLock lock(sMutex);
    environment().exitCallback = callback;
    environment().exitData = data;
  });
}
