// Connections, listeners, publishers and outgoing messages. One mutex guards them all. It is
// released while a callback runs, which may destroy any of them: the caller of a callback has a
// shared_ptr to each object that it uses afterwards.
#ifndef OXLI_STANDIN_OBJECTS_H
#define OXLI_STANDIN_OBJECTS_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "standin/control.h"
#include "standin/message.h"
#include "standin/thread_annotations.h"

namespace standin {

using Clock = std::chrono::steady_clock;

extern Mutex sMutex;

class Transport;
class Sender;
class Stream;
struct Connection;

template <class Handle>
struct Object {
  bool isOpen() const REQUIRES(sMutex) { return state == kOpening || state == kActive; }

  Handle* handle = nullptr;
  Settings settings GUARDED_BY(sMutex);  // given when it was made
  States state GUARDED_BY(sMutex) = kClosed;
  bool beingOpened GUARDED_BY(sMutex) = false;  // a thread is opening it; the state is closed
};

struct Listener : Object<ox_listener_t>, std::enable_shared_from_this<Listener> {
  std::shared_ptr<Connection> conn;
  ox_listener_cb_t callback = nullptr;
  void* data = nullptr;
  std::shared_ptr<Stream> stream GUARDED_BY(sMutex);  // of the latest opening
  bool replica GUARDED_BY(sMutex) = false;
  std::chrono::milliseconds interval GUARDED_BY(sMutex){};  // of time messages; 0 for none
  Clock::time_point nextTime GUARDED_BY(sMutex);
  std::int64_t seen GUARDED_BY(sMutex) = 0;  // revision of the latest row delivered
  // Whether this is a replica listener whose rows have not arrived from the server yet. It then
  // gets the rows with revisions higher than `from`.
  bool awaitsRows GUARDED_BY(sMutex) = false;
  std::int64_t from GUARDED_BY(sMutex) = 0;
};

struct AwaitedReply {
  Clock::time_point deadline;
  std::uint32_t userId;
};

struct Publisher : Object<ox_publisher_t> {
  std::shared_ptr<Connection> conn;
  bool replica GUARDED_BY(sMutex) = false;
  std::chrono::milliseconds replyTimeout GUARDED_BY(sMutex){};
  // Requests without a reply, by serial number. The order of the deadlines is the same.
  std::map<std::uint64_t, AwaitedReply> awaited GUARDED_BY(sMutex);
  std::shared_ptr<Sender> sender GUARDED_BY(sMutex);        // null without a server
  bool acknowledged GUARDED_BY(sMutex) = false;             // each post awaits acknowledgement
  std::shared_ptr<Stream> stream GUARDED_BY(sMutex);        // of the latest opening
  std::shared_ptr<const Scheme> scheme GUARDED_BY(sMutex);  // null until a setting gives it
};

// A message in the queue of a connection.
struct Item {
  std::shared_ptr<Listener> lsn;
  std::uint32_t type = 0;      // 0 for a record of deliver()
  MessagePtr message{};        // null for a message without a payload
  bool posted = false;         // counts towards the queue's limit
  ox_msg_t* record = nullptr;  // of deliver()
  std::size_t times = 1;
};

struct Connection : Object<ox_conn_t>, std::enable_shared_from_this<Connection> {
  std::vector<std::shared_ptr<Listener>> listeners GUARDED_BY(sMutex);
  std::vector<std::shared_ptr<Publisher>> publishers GUARDED_BY(sMutex);
  std::shared_ptr<Transport> transport GUARDED_BY(sMutex);  // null without a server
  std::deque<Item> queue GUARDED_BY(sMutex);
  std::size_t queueLimit GUARDED_BY(sMutex) = 0;  // of posted items
  std::size_t posted GUARDED_BY(sMutex) = 0;      // posted items in `queue`
  std::size_t incoming GUARDED_BY(sMutex) = 0;    // items that the post being checked would add
  bool crowded GUARDED_BY(sMutex) = false;        // `room` is notified when half the queue is free
  std::thread::id deliverer GUARDED_BY(sMutex);   // the thread that delivers; {} if there is none
  Condition changed;
};

struct Outgoing {
  Record record{};
  const Publisher* owner = nullptr;
  std::uint32_t type = 0;  // a copy: the application may overwrite the type in the record
  Description description;
  std::vector<char> payload;
  std::vector<std::uint8_t> nulls;
};

// Stops the listener, and delivers its last messages before returning.
void closeListener(Listener& lsn, std::int32_t reason) REQUIRES(sMutex);
// Makes the publisher leave its stream. Does not wait for its posts.
void closePublisher(Publisher& pub) REQUIRES(sMutex);

// Destroy an object without calling a listener. Its handle is stale afterwards.
void destroy(Listener& lsn) REQUIRES(sMutex);
void destroy(Publisher& pub) REQUIRES(sMutex);
void destroy(Connection& conn) REQUIRES(sMutex);

// Removes the setting `mode`. Returns true if its value is `replica`, false if it is missing.
// Refuses any other value.
bool extractReplica(Settings& settings);

// Marks an object as being opened until the end of the scope. Refuses if the object is not closed,
// or is being opened already.
template <class T>
class Opening {
 public:
  Opening(T& object, const char* refusal) REQUIRES(sMutex) : object_(object) {
    require(object.state == kClosed && !object.beingOpened, refusal, OX_ERR_INVALIDSTATE);
    object_.beingOpened = true;
  }
  ~Opening() REQUIRES(sMutex) { object_.beingOpened = false; }
  Opening(const Opening&) = delete;
  Opening& operator=(const Opening&) = delete;

 private:
  T& object_;
};

template <class T, class U>
void eraseFrom(std::vector<T>& list, const U& object) {
  const auto isIt = [&object](const T& member) { return &*member == &object; };
  list.erase(std::remove_if(list.begin(), list.end(), isIt), list.end());
}

}  // namespace standin

#endif  // OXLI_STANDIN_OBJECTS_H
