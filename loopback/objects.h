// The gateway's live objects. Everything here is guarded by the one lock that enter() takes; it is
// released while a callback of the host's runs, so an object may be destroyed meanwhile: whoever
// calls back keeps a shared_ptr to it.
#ifndef OXLI_LOOPBACK_OBJECTS_H
#define OXLI_LOOPBACK_OBJECTS_H

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "loopback/control.h"
#include "loopback/message.h"
#include "loopback/scheme.h"

namespace inproc {

using Clock = std::chrono::steady_clock;
using Lock = std::unique_lock<std::mutex>;
using loopback::kActive;
using loopback::kClosed;
using loopback::kClosing;
using loopback::kOpening;

struct Connection;
struct Stream;

struct Listener : std::enable_shared_from_this<Listener> {
  bool isOpen() const { return state == kOpening || state == kActive; }

  ox_listener_t* handle = nullptr;
  std::shared_ptr<Connection> conn;
  Properties settings;
  ox_listener_cb_t callback = nullptr;
  void* data = nullptr;
  loopback::States state = kClosed;
  std::shared_ptr<Stream> stream;  // of the latest open
  bool replica = false;
  std::chrono::milliseconds interval{};  // of time messages; 0: none
  Clock::time_point nextTime;
  std::uint32_t life = 0;
  std::int64_t seen = 0;  // revision of the latest row delivered
};

struct Publisher {
  ox_publisher_t* handle = nullptr;
  std::shared_ptr<Connection> conn;
  Properties settings;
  bool open = false;
  bool replica = false;
  std::chrono::milliseconds replyTimeout{};
  std::string replyStream;
  std::shared_ptr<Stream> stream;    // of the latest open
  std::shared_ptr<Scheme> declared;  // by ox_pub_new; kept, its description may be in use
  std::shared_ptr<Scheme> scheme;    // null: that of the stream
};

// Something to hand to a listener: a message in the form of `type`, a bare head of that type, or a
// caller's own record.
struct Item {
  std::shared_ptr<Listener> lsn;
  std::uint32_t type = 0;
  StoredPtr message;
  const ox_msg_t* record = nullptr;
  std::size_t times = 1;
};

struct AwaitedReply {
  std::uint64_t serial;
  std::uint64_t userId;
  std::string stream;
};

struct Connection {
  ox_conn_t* handle = nullptr;
  Properties settings;
  bool open = false;
  std::vector<std::shared_ptr<Listener>> listeners;
  std::vector<std::shared_ptr<Publisher>> publishers;
  std::deque<Item> queue;
  std::multimap<Clock::time_point, AwaitedReply> awaited;  // by deadline
  std::thread::id deliverer;                               // inside ox_conn_process; none: {}
  std::condition_variable changed;
};

struct Outgoing {
  Record record{};
  const Publisher* owner = nullptr;
  std::uint32_t type = 0;
  std::shared_ptr<Scheme> scheme;
  const Scheme::Message* message = nullptr;
  std::vector<char> payload;
  std::vector<std::uint8_t> nulls;
};

// Live objects by handle. A handle is a number in a pointer's clothes and never given out twice, so
// that a dead or invented one is found out.
template <class Handle, class T>
class Table {
 public:
  bool has(Handle* handle) const { return objects_.count(handle) > 0; }
  const std::shared_ptr<T>& get(Handle* handle) const {
    const auto found = objects_.find(handle);
    require(found != objects_.end(), OX_ERR_INVALIDARGUMENT);
    return found->second;
  }
  Handle* add(std::uintptr_t number, std::shared_ptr<T> object) {
    static_assert(sizeof(Handle*) == sizeof number, "a handle holds the number");
    std::memcpy(&object->handle, &number, sizeof number);
    Handle* const handle = object->handle;
    objects_.emplace(handle, std::move(object));
    return handle;
  }
  void remove(Handle* handle) { objects_.erase(handle); }
  const std::unordered_map<Handle*, std::shared_ptr<T>>& all() const { return objects_; }

 private:
  std::unordered_map<Handle*, std::shared_ptr<T>> objects_;
};

struct ExitTimer {
  std::thread thread;
  std::condition_variable changed;
  bool cancelled = false;
  bool raised = false;
};

struct Gateway {
  std::uintptr_t newHandle() { return lastHandle += 16; }

  std::mutex mutex;
  bool open = false;
  std::uintptr_t lastHandle = 0x10000;
  std::uint64_t lastSerial = 0;
  Table<ox_conn_t, Connection> connections;
  Table<ox_listener_t, Listener> listeners;
  Table<ox_publisher_t, Publisher> publishers;
  std::unordered_map<const ox_msg_t*, std::unique_ptr<Outgoing>> outgoing;
  std::map<std::string, std::weak_ptr<Stream>> streams;
  ox_exit_cb_t exitCallback = nullptr;
  void* exitData = nullptr;
  std::unique_ptr<ExitTimer> exitTimer;
};

// Never destroyed: the host's threads may call while the process ends.
Gateway& gateway();

// The lock; refuses while the environment is closed.
Lock enter();

// These call nobody back. Their objects' handles are dead then.
void destroyListener(const std::shared_ptr<Listener>& lsn);
void destroyPublisher(const std::shared_ptr<Publisher>& pub);
void destroyConnection(const std::shared_ptr<Connection>& conn);

}  // namespace inproc

#endif  // OXLI_LOOPBACK_OBJECTS_H
