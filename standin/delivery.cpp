#include "standin/delivery.h"

#include "standin/environment.h"
#include "standin/stream.h"

namespace standin {
namespace {

// A call of a listener on this thread.
struct Frame {
  const ox_msg_t* record;
  std::uint32_t type;  // a copy: the receiver may overwrite the type in the record
  const Message* message;
  const Frame* outer;
};

thread_local const Frame* innermost = nullptr;

KnownRecord readable(const ox_msg_t* from, std::uint32_t type, const Description* description,
                     const Outgoing* outgoing, const Message* delivered = nullptr) {
  const bool isRow = type == OX_MSG_STREAM_DATA;
  KnownRecord known{{}, isRow || type == OX_MSG_DATA || outgoing, outgoing, delivered, description};
  if (isRow) {
    known.record.row = *reinterpret_cast<const ox_msg_streamdata_t*>(from);
  } else if (known.whole) {
    known.record.data = *reinterpret_cast<const ox_msg_data_t*>(from);
  } else {
    known.record.head = *from;
  }
  known.record.head.type = type;
  return known;
}

// Called when a posted item has left the queue. Notifies the threads that wait for room only when
// half the queue is free, so that they do not wake up for each item.
void removePosted(Connection& conn) REQUIRES(sMutex) {
  --conn.posted;
  if (!conn.crowded || conn.posted > conn.queueLimit / 2) return;
  conn.crowded = false;
  environment().room.notifyAll();
}

}  // namespace

void enqueue(Listener& lsn, std::uint32_t type, MessagePtr message, bool posted) {
  Connection& conn = *lsn.conn;
  conn.queue.push_back({lsn.shared_from_this(), type, std::move(message), posted});
  if (posted) ++conn.posted;
  // Threads wait only while the queue is empty.
  if (conn.queue.size() == 1) conn.changed.notifyAll();
}

Item nextItem(Connection& conn) {
  Item& next = conn.queue.front();
  if (next.times > 1) {
    --next.times;
    return next;
  }
  Item item = std::move(next);
  conn.queue.pop_front();
  if (item.posted) removePosted(conn);
  return item;
}

void discardQueued(const Listener& lsn) {
  Connection& conn = *lsn.conn;
  const auto discard = [&](const Item& item) REQUIRES(sMutex) {
    const bool itsOwn = item.lsn.get() == &lsn;
    if (itsOwn && item.posted) removePosted(conn);
    return itsOwn;
  };
  conn.queue.erase(std::remove_if(conn.queue.begin(), conn.queue.end(), discard), conn.queue.end());
}

int callListener(const Item& item) {
  Listener& lsn = *item.lsn;
  Record record = item.message ? item.message->record : Record{};
  ox_msg_t* const handed = item.record ? item.record : &record.head;
  std::string state;
  if (!item.record) handed->type = item.type;
  if (item.type == OX_MSG_OPEN && lsn.state == kOpening) lsn.state = kActive;
  // Set before the callback, which may open the listener again.
  if (item.type == OX_MSG_CLOSE) lsn.state = kClosed;
  if (item.type == OX_MSG_STREAM_DATA) lsn.seen = record.row.rev;
  if (item.type == OX_MSG_ZRREPL_STATE) {
    state = lsn.stream->replState(lsn.seen);
    record.head.data = state.data();
    record.head.data_size = state.size() + 1;
  }
  const Frame frame{handed, handed->type, item.message.get(), innermost};
  innermost = &frame;
  int result = OX_ERR_OK;
  {
    const MutexUnlock unlock(sMutex);
    result = lsn.callback(lsn.conn->handle, lsn.handle, handed, lsn.data);
  }
  innermost = frame.outer;
  return result;
}

KnownRecord knownRecord(const ox_msg_t* record) {
  const auto& outgoing = environment().outgoing;
  const auto found = outgoing.find(record);
  if (found != outgoing.end()) {
    return readable(record, found->second->type, &found->second->description, found->second.get());
  }
  for (const Frame* frame = innermost; frame; frame = frame->outer) {
    const Message* const message = frame->message;
    if (frame->record == record) {
      return readable(record, frame->type, message ? &message->own.description : nullptr, nullptr,
                      message);
    }
    if (message && record == &message->ref.head) {
      return readable(record, OX_MSG_DATA, &message->ofRef.description, nullptr);
    }
  }
  throw Refusal{OX_ERR_INVALIDARGUMENT, "the message is neither outgoing nor being delivered"};
}

}  // namespace standin
