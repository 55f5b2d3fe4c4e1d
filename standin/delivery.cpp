#include <cstring>
#include <random>

#include "standin/gateway.h"

namespace standin {
namespace {

// Points the payload's descriptors to copies of their blocks.
void ownBlocks(Message::Bytes& bytes, const ox_msg_streamdata_t* row) {
  if (!bytes.description) return;
  for (const auto& [offset, field] : bytes.description->zFields) {
    ox_zblock_t block;
    // What a message refers to may have been cut by its host.
    if (offset + sizeof block > bytes.payload.size()) break;
    char* const at = &bytes.payload[offset];
    std::memcpy(&block, at, sizeof block);
    if (isNull(row, field) || block.size == 0) {
      block = {};
    } else {
      require(block.ptr, "a z-block has a size and no address");
      block.ptr = bytes.blocks.emplace_front(static_cast<char*>(block.ptr), block.size).data();
    }
    std::memcpy(at, &block, sizeof block);
  }
}

template <class T>
void ownBody(T& record, Message::Bytes& bytes) {
  ox_msg_t& head = record.head;
  if (!head.data) head.data_size = 0;
  bytes.payload.assign(static_cast<const char*>(head.data), head.data_size);
  head.data = head.data_size > 0 ? bytes.payload.data() : nullptr;
  if (record.msg_name) bytes.name = record.msg_name;
  record.msg_name = bytes.name.c_str();
}

void ownData(ox_msg_data_t& data, Message::Bytes& bytes) {
  ownBody(data, bytes);
  ownBlocks(bytes, nullptr);
  if (data.addr) bytes.addr = data.addr;
  data.addr = bytes.addr.c_str();
}

void ownRow(ox_msg_streamdata_t& row, Message::Bytes& bytes) {
  ownBody(row, bytes);
  ownBlocks(bytes, &row);
  if (!row.nulls) return;
  bytes.nulls.assign(reinterpret_cast<const char*>(row.nulls), row.num_nulls);
  row.nulls = reinterpret_cast<const std::uint8_t*>(bytes.nulls.data());
}

// A delivery that this thread is inside of.
struct Frame {
  const ox_msg_t* record;
  std::uint32_t type;  // the receiver may overwrite the record's
  const Message* message;
  const Frame* outer;
};

thread_local const Frame* innermost = nullptr;

KnownRecord readable(const ox_msg_t* from, std::uint32_t type, const Description& description,
                     const Outgoing* outgoing = nullptr) {
  const bool isRow = type == OX_MSG_STREAM_DATA;
  KnownRecord known{{}, isRow || type == OX_MSG_DATA || outgoing, outgoing, description};
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

// Random, so that no state of an earlier stream, of another process too, resumes on this one. Never
// 0, which a state without a life number has.
std::uint32_t newLifeNumber() {
  std::random_device system;
  for (;;) {
    if (const std::uint32_t number = system()) return number;
  }
}

std::string keyOf(const Scheme::Message& table, const ox_msg_streamdata_t& row) {
  std::string key = std::to_string(table.position) + ':';
  if (table.key.empty()) return key + std::to_string(row.rev);
  for (const ox_field_desc_t* field : table.key) {
    key.append(static_cast<const char*>(row.head.data) + field->offset, field->size);
  }
  return key;
}

MessagePtr clearedMessage(std::uint32_t table, std::int64_t rev) {
  const ox_data_cleardeleted_t cleared{table, rev};
  return makeMessage(OX_MSG_ZRREPL_CLEARDELETED, &cleared, sizeof cleared);
}

void enqueueChange(Listener& lsn, std::uint32_t type, const MessagePtr& change) {
  enqueue(lsn, OX_MSG_TN_BEGIN);
  enqueue(lsn, type, change, true);
  enqueue(lsn, OX_MSG_TN_COMMIT);
}

// Tells the open listeners that the last publisher has left, and closes them.
void endStream(Stream& stream) {
  const std::int32_t reason = standin::kStreamClosed;
  const MessagePtr close = makeMessage(OX_MSG_CLOSE, &reason, sizeof reason);
  for (Listener* lsn : std::exchange(stream.listeners, {})) {
    lsn->state = kClosing;
    if (lsn->replica) enqueue(*lsn, OX_MSG_ZRREPL_STATE);
    enqueue(*lsn, OX_MSG_CLOSE, close);
  }
}

}  // namespace

bool extractReplica(Settings& settings) {
  const std::string mode = settings.extract("mode");
  if (!mode.empty() && mode != "replica") settings.refuse("mode=" + mode + " is unknown");
  return !mode.empty();
}

bool isNull(const ox_msg_streamdata_t* row, std::uint32_t field) {
  return row && row->nulls && field < row->num_nulls && row->nulls[field];
}

MessagePtr copyOf(const Record& record, const Description& own, const Description& ofRef) {
  const auto message = std::make_shared<Message>();
  message->record = record;
  message->own.description = own;
  message->ofRef.description = ofRef;
  if (record.head.type == OX_MSG_STREAM_DATA) {
    ownRow(message->record.row, message->own);
    return message;
  }
  ownData(message->record.data, message->own);
  if (record.data.ref_msg) {
    message->ref = *record.data.ref_msg;
    message->ref.ref_msg = nullptr;
    ownData(message->ref, message->ofRef);
    message->record.data.ref_msg = &message->ref;
  }
  return message;
}

MessagePtr makeMessage(std::uint32_t type, const void* data, std::size_t size, const char* name,
                       std::uint32_t userId) {
  const ox_msg_t head{type, size, const_cast<void*>(data), 0};
  Record record;
  record.data = {head, UNKEYED_INDEX, UNKEYED_ID, name, userId, nullptr, nullptr};
  return copyOf(record);
}

void enqueue(Listener& lsn, std::uint32_t type, MessagePtr message, bool posted) {
  Connection& conn = *lsn.conn;
  conn.queue.push_back({lsn.shared_from_this(), type, posted, std::move(message)});
  if (posted) ++conn.posted;
  // A thread waits for messages only while there is none.
  if (conn.queue.size() == 1) conn.changed.notify_all();
}

int hand(Lock& lock, const Item& item) {
  Listener& lsn = *item.lsn;
  Record record = item.message ? item.message->record : Record{};
  ox_msg_t* const handed = item.record ? item.record : &record.head;
  std::string state;
  if (!item.record) handed->type = item.type;
  if (item.type == OX_MSG_OPEN && lsn.state == kOpening) lsn.state = kActive;
  // Before the callback, which may open the listener again.
  if (item.type == OX_MSG_CLOSE) lsn.state = kClosed;
  if (item.type == OX_MSG_STREAM_DATA) lsn.seen = record.row.rev;
  if (item.type == OX_MSG_ZRREPL_STATE) {
    state = "lifenum=" + std::to_string(lsn.stream->life) + ";rev=" + std::to_string(lsn.seen);
    record.head.data = state.data();
    record.head.data_size = state.size() + 1;
  }
  const Frame frame{handed, handed->type, item.message.get(), innermost};
  innermost = &frame;
  lock.unlock();
  const int result = lsn.callback(lsn.conn->handle, lsn.handle, handed, lsn.data);
  lock.lock();
  innermost = frame.outer;
  return result;
}

void detach(Listener& lsn) {
  if (lsn.stream) eraseFrom(lsn.stream->listeners, lsn);
  auto& queue = lsn.conn->queue;
  const auto isFor = [&lsn](const Item& item) {
    if (item.lsn.get() != &lsn) return false;
    if (item.posted) --lsn.conn->posted;
    return true;
  };
  queue.erase(std::remove_if(queue.begin(), queue.end(), isFor), queue.end());
  lsn.state = kClosed;
}

void closeListener(Lock& lock, Listener& lsn, std::int32_t reason) {
  detach(lsn);
  if (lsn.replica) hand(lock, {lsn.shared_from_this(), OX_MSG_ZRREPL_STATE, false, {}});
  // The callback may have opened or destroyed it.
  if (lsn.state != kClosed || gateway().listeners.count(lsn.handle) == 0) return;
  const MessagePtr close = makeMessage(OX_MSG_CLOSE, &reason, sizeof reason);
  hand(lock, {lsn.shared_from_this(), OX_MSG_CLOSE, false, close});
}

KnownRecord knownRecord(const ox_msg_t* record) {
  const auto found = gateway().outgoing.find(record);
  if (found != gateway().outgoing.end()) {
    const Outgoing& outgoing = *found->second;
    return readable(record, outgoing.type, outgoing.description, &outgoing);
  }
  for (const Frame* frame = innermost; frame; frame = frame->outer) {
    const Message* const message = frame->message;
    if (frame->record == record) {
      return readable(record, frame->type, message ? message->own.description : Description());
    }
    if (message && record == &message->ref.head) {
      return readable(record, OX_MSG_DATA, message->ofRef.description);
    }
  }
  throw Refusal{OX_ERR_INVALIDARGUMENT, "the message is neither outgoing nor being delivered"};
}

std::shared_ptr<Stream> streamNamed(const std::string& name) {
  const auto found = gateway().streams.find(name);
  if (found != gateway().streams.end()) return found->second.lock();
  const auto stream = std::make_shared<Stream>(name);
  stream->life = newLifeNumber();
  gateway().streams.emplace(name, stream);
  return stream;
}

Stream::~Stream() {
  const auto found = gateway().streams.find(name);
  // The name may be another stream's by now.
  if (found != gateway().streams.end() && found->second.expired()) gateway().streams.erase(found);
}

std::shared_ptr<Stream> joinStream(const std::string& name,
                                   const std::shared_ptr<const Scheme>& scheme) {
  std::shared_ptr<Stream> stream = streamNamed(name);
  if (scheme && stream->scheme() && !stream->scheme()->covers(*scheme)) {
    if (stream->publishers > 0) {
      throw Refusal{OX_ERR_INVALIDARGUMENT,
                    "stream=" + name + " has open publishers with another layout"};
    }
    endStream(*stream);
    gateway().streams.erase(name);
    stream = streamNamed(name);
  }
  auto& schemes = stream->schemes;
  if (scheme && std::find(schemes.begin(), schemes.end(), scheme) == schemes.end()) {
    schemes.push_back(scheme);
  }
  ++stream->publishers;
  return stream;
}

Description Stream::describe(const Scheme::Message& source) const {
  const auto isItsScheme = [&source](const auto& each) { return each.get() == source.scheme; };
  const auto found = std::find_if(schemes.begin(), schemes.end(), isItsScheme);
  if (found == schemes.end()) return {};
  const bool own = found == schemes.begin();
  return {schemes.front(), own ? &source : scheme()->find(OX_KEY_NAME, source.description.name)};
}

void requireRoom(const Stream& stream, bool replicasOnly) {
  bool full = false;
  for (const Listener* lsn : stream.listeners) {
    Connection& conn = *lsn->conn;
    if (lsn->replica || !replicasOnly) full |= conn.posted + ++conn.incoming > conn.queueLimit;
  }
  for (const Listener* lsn : stream.listeners) lsn->conn->incoming = 0;
  require(!full, "the queue of a receiving connection is full", standin::kQueueFull);
}

void publish(Stream& stream, const MessagePtr& message, const Scheme::Message* row) {
  if (row) {
    stream.rev = message->record.row.rev;
    stream.rows[keyOf(*row, message->record.row)] = {row->position, message};
  }
  const std::uint32_t type = message->record.head.type;
  for (Listener* lsn : stream.listeners) {
    if (row && lsn->replica) {
      enqueueChange(*lsn, type, message);
    } else {
      enqueue(*lsn, type, message, true);
    }
  }
}

void clearDeleted(Stream& stream, std::uint32_t table, std::int64_t rev) {
  for (auto at = stream.rows.begin(); at != stream.rows.end();) {
    const Stream::Row& row = at->second;
    const bool older = row.table == table && row.message->record.row.rev < rev;
    at = older ? stream.rows.erase(at) : std::next(at);
  }
  Stream::Cleared& cleared = stream.cleared[table];
  // Later rows stay, even if `rev` is greater than their revisions.
  const std::int64_t oldest = std::min(rev, stream.rev + 1);
  if (oldest > cleared.oldest) cleared = {oldest, stream.rev};
  const MessagePtr message = clearedMessage(table, rev);
  for (Listener* lsn : stream.listeners) {
    if (lsn->replica) enqueueChange(*lsn, OX_MSG_ZRREPL_CLEARDELETED, message);
  }
}

void sendSnapshot(Listener& lsn, std::uint32_t life, std::int64_t seen) {
  const Stream& stream = *lsn.stream;
  const std::int64_t from = life == stream.life ? seen : 0;
  std::map<std::int64_t, MessagePtr> rows;
  for (const auto& [key, row] : stream.rows) {
    const std::int64_t rev = row.message->record.row.rev;
    if (rev > from) rows.emplace(rev, row.message);
  }
  lsn.seen = from;
  const ox_data_lifenum_t number{stream.life, 0};
  enqueue(lsn, OX_MSG_ZRREPL_LIFENUM, makeMessage(OX_MSG_ZRREPL_LIFENUM, &number, sizeof number));
  enqueue(lsn, OX_MSG_TN_BEGIN);
  for (const auto& [table, cleared] : stream.cleared) {
    // A state of the revision at which rows were cleared may be from before or after that.
    if (from > 0 && from <= cleared.at) {
      enqueue(lsn, OX_MSG_ZRREPL_CLEARDELETED, clearedMessage(table, cleared.oldest));
    }
  }
  for (const auto& [rev, message] : rows) enqueue(lsn, OX_MSG_STREAM_DATA, message);
  enqueue(lsn, OX_MSG_TN_COMMIT);
  enqueue(lsn, OX_MSG_ZRREPL_ONLINE);
}

void closePublisher(Publisher& pub) {
  pub.state = kClosed;
  pub.awaited.clear();
  if (--pub.stream->publishers == 0) endStream(*pub.stream);
}

}  // namespace standin
