#include "standin/control.h"

#include "standin/gateway.h"

namespace standin {
namespace {

void refreshWatched() {
  gateway().watched =
      gateway().recording || !gateway().failures.empty() || !gateway().bodies.empty();
}

}  // namespace

std::optional<int> noteCall(const char* function, std::initializer_list<const char*> texts) {
  Lock lock(gateway().mutex);
  const auto body = gateway().bodies.find(function);
  if (body != gateway().bodies.end()) {
    const std::function<void()> run = std::move(body->second);
    gateway().bodies.erase(body);
    refreshWatched();
    lock.unlock();
    run();
    lock.lock();
  }
  if (gateway().recording) {
    std::string line = function;
    for (const char* text : texts) line += text ? " \"" + std::string(text) + '"' : " null";
    gateway().calls.push_back(std::move(line));
  }
  const auto prepared = gateway().failures.find(function);
  if (prepared == gateway().failures.end()) return std::nullopt;
  const int code = prepared->second;
  gateway().failures.erase(prepared);
  refreshWatched();
  return code;
}

void failNext(const char* function, int code) {
  const Lock lock(gateway().mutex);
  gateway().failures[function] = code;
  refreshWatched();
}

void runDuringNext(const char* function, std::function<void()> body) {
  const Lock lock(gateway().mutex);
  gateway().bodies[function] = std::move(body);
  refreshWatched();
}

bool deliver(ox_listener_t* handle, const ox_msg_t* record, std::size_t times) {
  const Lock lock(gateway().mutex);
  const auto found = gateway().listeners.find(handle);
  if (found == gateway().listeners.end() || times == 0) return false;
  Connection& conn = *found->second->conn;
  conn.queue.push_back({found->second, 0, false, {}, const_cast<ox_msg_t*>(record), times});
  conn.changed.notify_all();
  return true;
}

int deliverNow(ox_listener_t* handle, ox_msg_t* record) {
  Lock lock(gateway().mutex);
  const auto found = gateway().listeners.find(handle);
  if (found == gateway().listeners.end()) return OX_ERR_INVALIDARGUMENT;
  return hand(lock, {found->second, 0, false, {}, record});
}

void recordCalls(bool on) {
  const Lock lock(gateway().mutex);
  gateway().recording = on;
  refreshWatched();
}

std::vector<std::string> calls() {
  const Lock lock(gateway().mutex);
  return gateway().calls;
}

std::vector<std::string> logLines() {
  const Lock lock(gateway().mutex);
  return gateway().logLines;
}

void clearCalls() {
  const Lock lock(gateway().mutex);
  gateway().calls.clear();
  gateway().logLines.clear();
}

std::size_t liveObjects() {
  const Lock lock(gateway().mutex);
  return gateway().connections.size() + gateway().listeners.size() + gateway().publishers.size() +
         gateway().outgoing.size() + gateway().streams.size() + gateway().schemes.size();
}

bool raiseExit() {
  bool raised = false;
  std::thread([&raised] { raised = raiseExitEvent(); }).join();
  return raised;
}

}  // namespace standin
