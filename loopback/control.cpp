#include "loopback/control.h"

#include <map>
#include <mutex>

#include "loopback/call.h"
#include "loopback/delivery.h"
#include "loopback/environment.h"

namespace inproc {
namespace {

// What tests prepare and read. Its lock is taken last and nothing is called under it.
struct Watch {
  void refresh() { watched = recording || !failures.empty(); }

  std::mutex mutex;
  bool recording = false;
  std::map<std::string, int> failures;
  std::vector<std::string> calls;
  std::vector<std::string> logLines;
};

Watch& watch() {
  static Watch& lasting = *new Watch;
  return lasting;
}

}  // namespace

std::atomic<bool> watched{false};

std::optional<int> noteCall(const char* function, std::initializer_list<const char*> texts) {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  if (watch().recording) {
    std::string line = function;
    for (const char* text : texts) line += text ? " \"" + std::string(text) + '"' : " null";
    watch().calls.push_back(std::move(line));
  }
  const auto prepared = watch().failures.find(function);
  if (prepared == watch().failures.end()) return std::nullopt;
  const int code = prepared->second;
  watch().failures.erase(prepared);
  watch().refresh();
  return code;
}

void noteLog(const std::string& line) {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  if (watch().recording) watch().logLines.push_back(line);
}

}  // namespace inproc

namespace loopback {

using namespace inproc;

void failNext(const char* function, int code) {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  watch().failures[function] = code;
  watch().refresh();
}

bool deliver(ox_listener_t* handle, const ox_msg_t* record, std::size_t times) {
  const Lock lock(gateway().mutex);
  if (!gateway().listeners.has(handle) || times == 0) return false;
  const std::shared_ptr<Listener>& lsn = gateway().listeners.get(handle);
  lsn->conn->queue.push_back({lsn, 0, {}, record, times});
  lsn->conn->changed.notify_all();
  return true;
}

int deliverNow(ox_listener_t* handle, ox_msg_t* record) {
  Lock lock(gateway().mutex);
  if (!gateway().listeners.has(handle)) return OX_ERR_INVALIDARGUMENT;
  const std::shared_ptr<Listener> lsn = gateway().listeners.get(handle);
  return handForeign(lock, *lsn, *record);
}

void recordCalls(bool on) {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  watch().recording = on;
  watch().refresh();
}

std::vector<std::string> calls() {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  return watch().calls;
}

std::vector<std::string> logLines() {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  return watch().logLines;
}

void clearCalls() {
  const std::lock_guard<std::mutex> lock(watch().mutex);
  watch().calls.clear();
  watch().logLines.clear();
}

std::size_t liveObjects() {
  const Lock lock(gateway().mutex);
  return gateway().connections.all().size() + gateway().listeners.all().size() +
         gateway().publishers.all().size() + gateway().outgoing.size();
}

bool raiseExit() {
  bool raised = false;
  std::thread([&raised] { raised = raiseExitEvent(); }).join();
  return raised;
}

}  // namespace loopback
