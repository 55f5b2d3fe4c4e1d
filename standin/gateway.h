// The gateway's live objects. Everything here is guarded by the one lock that enter() takes; it is
// held where a function is called that does not say that it takes it. It is released while a
// callback of the host's runs, so an object may be destroyed meanwhile: whoever calls back keeps a
// shared_ptr to it.
#ifndef OXLI_STANDIN_GATEWAY_H
#define OXLI_STANDIN_GATEWAY_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <forward_list>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "standin/control.h"
#include "standin/scheme.h"

namespace standin {

using Clock = std::chrono::steady_clock;
using Lock = std::unique_lock<std::mutex>;
using standin::kActive;
using standin::kClosed;
using standin::kClosing;
using standin::kOpening;

// Memory for any record. What they all begin with may be read through any of them.
union Record {
  ox_msg_streamdata_t row;  // the widest: clears the others too
  ox_msg_data_t data;
  ox_msg_t head;
};

// A description, and the scheme that it belongs to kept alive.
using Description = std::shared_ptr<const Scheme::Message>;

// A message on its way to listeners with its own copy of what it points to; never changed.
struct Message {
  struct Bytes {
    std::string payload, name, addr, nulls;
    Description description;                // of the payload; null when there is none
    std::forward_list<std::string> blocks;  // that the payload's descriptors point to
  };
  Record record{};
  ox_msg_data_t ref{};  // what `record` refers to, if it does
  Bytes own, ofRef;
};
using MessagePtr = std::shared_ptr<const Message>;

struct Connection;
struct Stream;

template <class Handle>
struct Object {
  bool isOpen() const { return state == kOpening || state == kActive; }

  Handle* handle = nullptr;
  Settings settings;
  standin::States state = kClosed;
};

struct Listener : Object<ox_listener_t>, std::enable_shared_from_this<Listener> {
  std::shared_ptr<Connection> conn;
  ox_listener_cb_t callback = nullptr;
  void* data = nullptr;
  std::shared_ptr<Stream> stream;  // of the latest open
  bool replica = false;
  std::chrono::milliseconds interval{};  // of time messages; 0: none
  Clock::time_point nextTime;
  std::int64_t seen = 0;  // revision of the latest row delivered
};

struct AwaitedReply {
  Clock::time_point deadline;
  std::uint32_t userId;
};

struct Publisher : Object<ox_publisher_t> {
  std::shared_ptr<Connection> conn;
  bool replica = false;
  std::chrono::milliseconds replyTimeout{};
  std::map<std::uint64_t, AwaitedReply> awaited;  // by serial number, hence by deadline too
  std::shared_ptr<Stream> stream;                 // of the latest open
  std::shared_ptr<const Scheme> scheme;           // its own, once it has one; or null
};

// Something to hand to a listener.
struct Item {
  std::shared_ptr<Listener> lsn;
  std::uint32_t type = 0;      // 0: a caller's own record
  bool posted = false;         // counts towards the connection's limit
  MessagePtr message;          // null: there is nothing but the type
  ox_msg_t* record = nullptr;  // the caller's
  std::size_t times = 1;
};

struct Connection : Object<ox_conn_t> {
  std::vector<std::shared_ptr<Listener>> listeners;
  std::vector<std::shared_ptr<Publisher>> publishers;
  std::deque<Item> queue;
  std::size_t queueLimit = 0;
  std::size_t posted = 0;     // in `queue`
  std::size_t incoming = 0;   // of the post that requireRoom() looks at
  std::thread::id deliverer;  // inside ox_conn_process; none: {}
  std::condition_variable changed;
};

struct Outgoing {
  Record record{};
  const Publisher* owner = nullptr;
  std::uint32_t type = 0;  // the host may overwrite the record's
  Description description;
  std::vector<char> payload;
  std::vector<std::uint8_t> nulls;
};

// Lives as long as a listener or publisher that was opened on it.
struct Stream {
  explicit Stream(std::string itsName) : name(std::move(itsName)) {}
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream();
  struct Row {
    std::uint32_t table;
    MessagePtr message;
  };
  struct Cleared {
    std::int64_t oldest = 0;  // no row has a lower revision
    std::int64_t at = 0;      // the stream's revision when rows were cleared
  };
  const Scheme* scheme() const { return schemes.empty() ? nullptr : schemes.front().get(); }
  // What this stream's scheme says of a message made from `source`; null when it says nothing.
  Description describe(const Scheme::Message& source) const;

  const std::string name;
  // The first publisher's is the stream's; it covers the others.
  std::vector<std::shared_ptr<const Scheme>> schemes;
  std::vector<Listener*> listeners;           // the open ones
  std::size_t publishers = 0;                 // open ones
  std::uint32_t life = 0;                     // random, never 0
  std::int64_t rev = 0;                       // of the latest row
  std::unordered_map<std::string, Row> rows;  // by key
  std::map<std::uint32_t, Cleared> cleared;   // by table
};

// Live objects by handle. A handle is a number in a pointer's clothes and never given out twice, so
// that a dead or invented one is found out.
template <class Handle, class T>
struct Table : std::unordered_map<Handle*, std::shared_ptr<T>> {
  std::shared_ptr<T> live(Handle* handle) const {
    const auto found = this->find(handle);
    require(found != this->end(), "the handle is not that of a live object");
    return found->second;
  }
};

// Raises the exit event after a time, unless it is stopped before.
struct ExitThread {
  std::thread thread;
  bool stopped = false;
  bool raising = false;
  std::condition_variable changed;
};

struct Gateway {
  Table<ox_conn_t, Connection>& table(ox_conn_t*) { return connections; }
  Table<ox_listener_t, Listener>& table(ox_listener_t*) { return listeners; }
  Table<ox_publisher_t, Publisher>& table(ox_publisher_t*) { return publishers; }
  template <class T>
  auto add(const std::shared_ptr<T>& object) {
    object->handle = reinterpret_cast<decltype(object->handle)>(lastHandle += 16);
    table(object->handle).emplace(object->handle, object);
    return object->handle;
  }

  std::mutex mutex;
  bool open = false;
  std::uintptr_t lastHandle = 0x10000;
  std::uint64_t lastSerial = 0;
  Table<ox_conn_t, Connection> connections;
  Table<ox_listener_t, Listener> listeners;
  Table<ox_publisher_t, Publisher> publishers;
  std::unordered_map<const ox_msg_t*, std::unique_ptr<Outgoing>> outgoing;
  std::map<std::string, std::weak_ptr<Stream>> streams;        // all alive
  std::map<std::string, std::weak_ptr<const Scheme>> schemes;  // one for equal texts; all alive
  std::FILE* log = nullptr;

  ox_exit_cb_t exitCallback = nullptr;
  void* exitData = nullptr;
  std::shared_ptr<ExitThread> exitThread;

  // What tests prepare and read. `watched`: they do, so that no other call pays for it.
  std::atomic<bool> watched{false};
  bool recording = false;
  std::map<std::string, int> failures;
  std::map<std::string, std::function<void()>> bodies;
  std::vector<std::string> calls;
  std::vector<std::string> logLines;
};

// Never destroyed: the host's threads may call while the process ends.
Gateway& gateway();

// Takes the lock; refuses while the environment is closed.
Lock enter();

// Whether somebody reads the log: lines that say more than a refusal are made only then.
bool isLogging();
void writeLog(const char* level, const std::string& line);
// Notes each key that was not extracted.
void logUnknown(const char* function, const Settings& settings);
// The result of a function that threw what is being handled, and a line in the log. Takes the lock.
int resultOfFailure(const char* function) noexcept;

// Calls the registered exit callback on this thread; false when there is none. Takes the lock.
bool raiseExitEvent();

// These call nobody back. The objects' handles are dead then.
void destroy(Listener& lsn);
void destroy(Publisher& pub);
void destroy(Connection& conn);

// Whether the mode is that of a replicated stream.
bool extractReplica(Settings& settings);

template <class T, class U>
void eraseFrom(std::vector<T>& list, const U& object) {
  const auto isIt = [&object](const T& member) { return &*member == &object; };
  list.erase(std::remove_if(list.begin(), list.end(), isIt), list.end());
}

std::shared_ptr<Stream> streamNamed(const std::string& name);
// The stream for one more open publisher with that scheme, which may be null. The stream's must
// cover it; where no other publisher is open, a stream made anew takes its place.
std::shared_ptr<Stream> joinStream(const std::string& name,
                                   const std::shared_ptr<const Scheme>& scheme);
// `row`: how it is described; null when the message is none.
// Refuses a post unless the queue of every listener that gets it has room.
void requireRoom(const Stream& stream, bool replicasOnly);
void publish(Stream& stream, const MessagePtr& message, const Scheme::Message* row);
void clearDeleted(Stream& stream, std::uint32_t table, std::int64_t rev);
// Queues what a replica listener gets first: all rows, or with the stream's life number what has
// changed since the revision `seen`.
void sendSnapshot(Listener& lsn, std::uint32_t life, std::int64_t seen);
void closePublisher(Publisher& pub);

// Whether a row has no value for a field; `row` may be null.
bool isNull(const ox_msg_streamdata_t* row, std::uint32_t field);
// `record` with its own copy of what it points to: with the blocks of its payload, and of the one
// it refers to, as their descriptions say.
MessagePtr copyOf(const Record& record, const Description& own = {}, const Description& ofRef = {});
// A message of the gateway's own.
MessagePtr makeMessage(std::uint32_t type, const void* data, std::size_t size,
                       const char* name = "", std::uint32_t userId = 0);
void enqueue(Listener& lsn, std::uint32_t type, MessagePtr message = {}, bool posted = false);
// Calls the listener with the lock released; gives its result.
int hand(Lock& lock, const Item& item);
// Takes the listener off its stream and drops what is queued for it; it is closed then.
void detach(Listener& lsn);
// The closing messages, at once.
void closeListener(Lock& lock, Listener& lsn, std::int32_t reason);

// A record that may be read: an outgoing one, or one that this thread is inside the delivery of.
struct KnownRecord {
  Record record;             // as far as it may be read
  bool whole;                // not the head alone
  const Outgoing* outgoing;  // null: being delivered
  Description description;   // null for a record without one and for a caller's own
};
// Refuses any other address without touching it.
KnownRecord knownRecord(const ox_msg_t* record);

// Records the call; gives the code of a failure that was prepared for it. Takes the lock.
std::optional<int> noteCall(const char* function, std::initializer_list<const char*> texts);

// The boundary of every ox_ function: nothing that is thrown inside leaves it, and every refusal is
// logged. A body returns its result, or nothing for success. Takes no lock for `body`.
template <class Body>
int call(const char* function, std::initializer_list<const char*> texts, Body&& body) noexcept {
  try {
    if (gateway().watched.load(std::memory_order_relaxed)) {
      if (const std::optional<int> failure = noteCall(function, texts)) return *failure;
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

// The same for a function of one live object: body(object, lock).
template <class Handle, class Body>
int call(const char* function, std::initializer_list<const char*> texts, Handle* handle,
         Body&& body) noexcept {
  return call(function, texts, [&] {
    Lock lock = enter();
    const auto object = gateway().table(handle).live(handle);
    return body(*object, lock);
  });
}

template <class Handle>
int getState(const char* function, Handle* handle, std::int32_t* state) {
  return call(function, {}, handle, [state](const auto& object, Lock&) {
    require(state, "the state's out-parameter is null");
    *state = object.state;
  });
}

}  // namespace standin

#endif  // OXLI_STANDIN_GATEWAY_H
