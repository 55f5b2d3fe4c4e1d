#include "loopback/delivery.h"

#include <algorithm>

#include "loopback/stream.h"

namespace inproc {
namespace {

// A delivery that this thread is inside of.
struct Frame {
  const ox_msg_t* record;
  std::uint32_t type;  // the receiver may overwrite the record's
  Shape shape;
  const Stored* message;
  const Frame* outer;
};

thread_local const Frame* innermost = nullptr;

class Outside {  // leaves the lock for a callback
 public:
  Outside(Lock& lock, const Frame& frame) : lock_(lock) {
    innermost = &frame;
    lock_.unlock();
  }
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;
  ~Outside() {
    lock_.lock();
    innermost = innermost->outer;
  }

 private:
  Lock& lock_;
};

int handRecord(Lock& lock, Listener& lsn, ox_msg_t& record, Shape shape, const Stored* message) {
  const Frame frame{&record, record.type, shape, message, innermost};
  const Outside outside(lock, frame);
  return lsn.callback(lsn.conn->handle, lsn.handle, &record, lsn.data);
}

}  // namespace

StoredPtr serviceMessage(std::uint32_t type, const void* data, std::size_t size) {
  Content content;
  content.type = type;
  content.data = data;
  content.size = size;
  return Stored::make(content);
}

void enqueue(Listener& lsn, std::uint32_t type, StoredPtr message) {
  Connection& conn = *lsn.conn;
  conn.queue.push_back({lsn.shared_from_this(), type, std::move(message)});
  // A thread waits for messages only while there is none.
  if (conn.queue.size() == 1) conn.changed.notify_all();
}

int handForeign(Lock& lock, Listener& lsn, ox_msg_t& record) {
  const bool isData = (record.type & ~OX_MSG_PARSEERR_BIT) == OX_MSG_DATA;
  const Shape shape = isData                              ? Shape::Data
                      : record.type == OX_MSG_STREAM_DATA ? Shape::Row
                                                          : Shape::Head;
  return handRecord(lock, lsn, record, shape, nullptr);
}

int hand(Lock& lock, Listener& lsn, std::uint32_t type, const StoredPtr& message) {
  static const Content kNothing;
  Record record = recordOf(message.get() ? *message.get() : kNothing, type);
  std::string text;
  if (type == OX_MSG_OPEN && lsn.state == kOpening) lsn.state = kActive;
  // Before the callback, which may open the listener again.
  if (type == OX_MSG_CLOSE) lsn.state = kClosed;
  if (type == OX_MSG_STREAM_DATA) lsn.seen = message->rev;
  if (type == OX_MSG_ZRREPL_STATE) {
    text = "lifenum=" + std::to_string(lsn.life) + ";rev=" + std::to_string(lsn.seen);
    record.head.data = text.data();
    record.head.data_size = text.size() + 1;
  }
  return handRecord(lock, lsn, record.head, shapeOf(type), message.get());
}

void closeListener(Lock& lock, Listener& lsn, std::int32_t reason) {
  detach(lsn);
  if (lsn.replica) hand(lock, lsn, OX_MSG_ZRREPL_STATE, {});
  // The callback may have opened or destroyed it.
  if (lsn.state != kClosed || !gateway().listeners.has(lsn.handle)) return;
  hand(lock, lsn, OX_MSG_CLOSE, serviceMessage(OX_MSG_CLOSE, &reason, sizeof reason));
}

void detach(Listener& lsn) {
  if (lsn.stream) {
    auto& listeners = lsn.stream->listeners;
    listeners.erase(std::remove(listeners.begin(), listeners.end(), &lsn), listeners.end());
  }
  auto& queue = lsn.conn->queue;
  const auto isFor = [&lsn](const Item& item) { return item.lsn.get() == &lsn; };
  queue.erase(std::remove_if(queue.begin(), queue.end(), isFor), queue.end());
  lsn.state = kClosed;
}

KnownRecord knownRecord(const ox_msg_t* record) {
  const auto& outgoing = gateway().outgoing;
  const auto found = outgoing.find(record);
  if (found != outgoing.end()) {
    return {shapeOf(found->second->type), found->second->type, found->second.get()};
  }
  for (const Frame* frame = innermost; frame; frame = frame->outer) {
    if (frame->record == record) return {frame->shape, frame->type, nullptr};
    const bool isRef =
        frame->message && frame->message->ref && record == &frame->message->ref->head;
    if (isRef) return {Shape::Data, OX_MSG_DATA, nullptr};
  }
  throw Refused{OX_ERR_INVALIDARGUMENT};
}

}  // namespace inproc
