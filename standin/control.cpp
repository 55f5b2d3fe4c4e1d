#include "standin/control.h"

#include "standin/delivery.h"
#include "standin/environment.h"
#include "standin/transport.h"
#include "standin/worker.h"

namespace standin {
namespace {

void refreshWatched() REQUIRES(sMutex) {
  Environment& env = environment();
  env.watched = env.recording || !env.failures.empty() || !env.bodies.empty();
}

// Returns and removes the body that the call runs first; empty if there is none.
std::function<void()> nextBody(const char* function) {
  const MutexLock lock(sMutex);
  auto& bodies = environment().bodies;
  const auto found = bodies.find(function);
  if (found == bodies.end()) return {};
  std::function<void()> body = std::move(found->second);
  bodies.erase(found);
  refreshWatched();
  return body;
}

}  // namespace

std::optional<int> noteCall(const char* function, std::initializer_list<const char*> strings) {
  if (const std::function<void()> body = nextBody(function)) body();
  const MutexLock lock(sMutex);
  Environment& env = environment();
  if (env.recording) {
    std::string line = function;
    for (const char* string : strings) {
      line += string ? " \"" + std::string(string) + '"' : " null";
    }
    env.calls.push_back(std::move(line));
  }
  const auto prepared = env.failures.find(function);
  if (prepared == env.failures.end()) return std::nullopt;
  const int code = prepared->second;
  env.failures.erase(prepared);
  refreshWatched();
  return code;
}

void failNext(const char* function, int code) {
  const MutexLock lock(sMutex);
  environment().failures[function] = code;
  refreshWatched();
}

void runDuringNext(const char* function, std::function<void()> body) {
  const MutexLock lock(sMutex);
  environment().bodies[function] = std::move(body);
  refreshWatched();
}

bool deliver(ox_listener_t* handle, const ox_msg_t* record, std::size_t times) {
  const MutexLock lock(sMutex);
  const auto& listeners = environment().listeners;
  const auto found = listeners.find(handle);
  if (found == listeners.end() || times == 0) return false;
  Connection& conn = *found->second->conn;
  conn.queue.push_back({found->second, 0, {}, false, const_cast<ox_msg_t*>(record), times});
  conn.changed.notifyAll();
  return true;
}

int deliverNow(ox_listener_t* handle, ox_msg_t* record) {
  const MutexLock lock(sMutex);
  const auto& listeners = environment().listeners;
  const auto found = listeners.find(handle);
  if (found == listeners.end()) return OX_ERR_INVALIDARGUMENT;
  return callListener({found->second, 0, {}, false, record});
}

void recordCalls(bool on) {
  const MutexLock lock(sMutex);
  environment().recording = on;
  refreshWatched();
}

std::vector<std::string> calls() {
  const MutexLock lock(sMutex);
  return environment().calls;
}

std::vector<std::string> logLines() {
  const MutexLock lock(sMutex);
  return environment().logLines;
}

void clearCalls() {
  const MutexLock lock(sMutex);
  environment().calls.clear();
  environment().logLines.clear();
}

bool settle() {
  const MutexLock lock(sMutex);
  const auto isSettled = [](const auto& entry) REQUIRES(sMutex) {
    const Connection& conn = *entry.second;
    return !conn.transport || conn.transport->isSettled();
  };
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  for (;;) {
    const auto& connections = environment().connections;
    if (std::all_of(connections.begin(), connections.end(), isSettled)) {
      joinWorkers();
      return true;
    }
    if (Clock::now() > deadline) return false;
    const MutexUnlock unlock(sMutex);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

std::size_t liveObjects() {
  const MutexLock lock(sMutex);
  const Environment& env = environment();
  return env.connections.size() + env.listeners.size() + env.publishers.size() +
         env.outgoing.size() + env.streams.size() + env.schemes.size();
}

bool raiseExit() {
  bool raised = false;
  std::thread([&raised] { raised = raiseExitEvent(); }).join();
  return raised;
}

}  // namespace standin
