// The environment: all existing objects, by handle, and the boundary of every ox_ function.
#ifndef OXLI_STANDIN_ENVIRONMENT_H
#define OXLI_STANDIN_ENVIRONMENT_H

#include <atomic>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "standin/objects.h"

namespace standin {

// Handles are counters cast to pointers. They are never reused, so a stale or invalid handle fails
// the lookup.
template <class Handle, class T>
struct Table : std::unordered_map<Handle*, std::shared_ptr<T>> {
  std::shared_ptr<T> get(Handle* handle) const {
    const auto found = this->find(handle);
    require(found != this->end(), "the handle is stale or invalid");
    return found->second;
  }
};

struct ExitThread;
class Worker;

struct Environment {
  auto& table(ox_conn_t*) REQUIRES(sMutex) { return connections; }
  auto& table(ox_listener_t*) REQUIRES(sMutex) { return listeners; }
  auto& table(ox_publisher_t*) REQUIRES(sMutex) { return publishers; }
  // Adds the object to its table under a new handle, and returns the handle.
  template <class T>
  auto add(const std::shared_ptr<T>& object) REQUIRES(sMutex) {
    object->handle = reinterpret_cast<decltype(object->handle)>(lastHandle += 16);
    table(object->handle).emplace(object->handle, object);
    return object->handle;
  }

  bool open GUARDED_BY(sMutex) = false;
  // ox_env_close has set `open` to false, and is still waiting.
  bool closing GUARDED_BY(sMutex) = false;
  std::uintptr_t lastHandle GUARDED_BY(sMutex) = 0x10000;
  std::uint64_t lastSerial GUARDED_BY(sMutex) = 0;
  Table<ox_conn_t, Connection> connections GUARDED_BY(sMutex);
  Table<ox_listener_t, Listener> listeners GUARDED_BY(sMutex);
  Table<ox_publisher_t, Publisher> publishers GUARDED_BY(sMutex);
  std::unordered_map<const ox_msg_t*, std::unique_ptr<Outgoing>> outgoing GUARDED_BY(sMutex);
  // Streams and schemes remove themselves when they are destroyed.
  std::map<std::string, std::weak_ptr<Stream>> streams GUARDED_BY(sMutex);  // by address and name
  std::map<std::string, std::weak_ptr<const Scheme>> schemes GUARDED_BY(sMutex);  // by string
  std::vector<std::shared_ptr<Worker>> workers GUARDED_BY(sMutex);
  Condition room;  // notified when a crowded connection has room again
  std::FILE* log GUARDED_BY(sMutex) = nullptr;

  ox_exit_cb_t exitCallback GUARDED_BY(sMutex) = nullptr;
  void* exitData GUARDED_BY(sMutex) = nullptr;
  std::shared_ptr<ExitThread> exitThread GUARDED_BY(sMutex);

  // For control.h. `watched` is true while calls are recorded, or failures or bodies are prepared.
  // Calls read it first, so that they acquire no lock for this otherwise.
  std::atomic<bool> watched{false};
  bool recording GUARDED_BY(sMutex) = false;
  std::map<std::string, int> failures GUARDED_BY(sMutex);
  std::map<std::string, std::function<void()>> bodies GUARDED_BY(sMutex);
  std::vector<std::string> calls GUARDED_BY(sMutex);
  std::vector<std::string> logLines GUARDED_BY(sMutex);
};

// Never destroyed: threads of the application may call ox_ functions while the process ends.
Environment& environment();

void requireOpenEnvironment() REQUIRES(sMutex);

// Returns the scheme of a string. Equal strings share one object, so that comparing the addresses
// of two schemes is sufficient.
std::shared_ptr<const Scheme> sharedScheme(const std::string& string) REQUIRES(sMutex);

// Returns a random life number, so that no listener resumes on a stream from the state of an
// earlier stream, even of another process. Never 0, which stands for a state without a life number.
std::uint32_t newLifeNumber();

// Calls the exit callback on this thread. Returns false if none is registered.
bool raiseExitEvent() EXCLUDES(sMutex);

// Runs the body that was prepared for the call, if any, and records the call while recording is on.
// Returns the code of a prepared failure, or nullopt.
std::optional<int> noteCall(const char* function, std::initializer_list<const char*> strings)
    EXCLUDES(sMutex);

// Logs the exception that is being handled, and returns the result code for it.
int resultOfFailure(const char* function) noexcept EXCLUDES(sMutex);

// The boundary of every ox_ function: no exception leaves it. The body returns a result code, or
// void for OX_ERR_OK.
template <class Body>
int call(const char* function, std::initializer_list<const char*> strings, Body&& body) noexcept {
  try {
    if (environment().watched.load(std::memory_order_relaxed)) {
      if (const std::optional<int> failure = noteCall(function, strings)) return *failure;
    }
    if constexpr (std::is_void_v<decltype(body())>) {
      body();
      return OX_ERR_OK;
    } else {
      return body();
    }
  } catch (...) {
    return resultOfFailure(function);
  }
}

// The same for a function of one object: calls body(object) with the lock acquired.
template <class Handle, class Body>
int call(const char* function, std::initializer_list<const char*> strings, Handle* handle,
         Body&& body) noexcept {
  return call(function, strings, [&] {
    const MutexLock lock(sMutex);
    requireOpenEnvironment();
    const auto object = environment().table(handle).get(handle);
    return body(*object);
  });
}

template <class Handle>
int getState(const char* function, Handle* handle, std::int32_t* state) {
  return call(function, {}, handle, [state](const auto& object) REQUIRES(sMutex) {
    require(state, "the state's out-parameter is null");
    *state = object.state;
  });
}

}  // namespace standin

#endif  // OXLI_STANDIN_ENVIRONMENT_H
