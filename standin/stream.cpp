#include "standin/stream.h"

#include <random>

#include "standin/environment.h"
#include "standin/log.h"

namespace standin {
namespace {

// Random, so that the state of an earlier stream, also in another process, does not resume on this
// one. Not 0, which is the default of a state without a life number.
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

MessagePtr clearedMessage(std::uint32_t table, std::int64_t olderThan) {
  return makeMessage(OX_MSG_ZRREPL_CLEARDELETED, ox_data_cleardeleted_t{table, olderThan});
}

void enqueueChange(Listener& lsn, std::uint32_t type, const MessagePtr& change) REQUIRES(sMutex) {
  enqueue(lsn, OX_MSG_TN_BEGIN);
  enqueue(lsn, type, change, true);
  enqueue(lsn, OX_MSG_TN_COMMIT);
}

}  // namespace

Stream::Stream(std::string name) : name_(std::move(name)), life_(newLifeNumber()) {
}

Stream::~Stream() {
  auto& streams = environment().streams;
  const auto found = streams.find(name_);
  // Another stream may have replaced this one.
  if (found != streams.end() && found->second.expired()) streams.erase(found);
}

std::shared_ptr<Stream> Stream::named(const std::string& name) {
  auto& streams = environment().streams;
  const auto found = streams.find(name);
  if (found != streams.end()) return found->second.lock();
  auto stream = std::make_shared<Stream>(name);
  streams.emplace(name, stream);
  return stream;
}

std::shared_ptr<Stream> Stream::join(const std::string& name,
                                     const std::shared_ptr<const Scheme>& scheme) {
  std::shared_ptr<Stream> stream = named(name);
  if (scheme && stream->scheme_ && !stream->scheme_->covers(*scheme)) {
    if (stream->publishers_ > 0) {
      throw Refusal{OX_ERR_INVALIDARGUMENT,
                    "stream=" + name + " has open publishers with another layout"};
    }
    stream->closeListeners();
    environment().streams.erase(name);
    stream = named(name);
  }
  if (!stream->scheme_) stream->scheme_ = scheme;
  auto& schemes = stream->schemes_;
  if (scheme && std::find(schemes.begin(), schemes.end(), scheme) == schemes.end()) {
    schemes.push_back(scheme);
  }
  ++stream->publishers_;
  return stream;
}

void Stream::leave() {
  if (--publishers_ == 0) closeListeners();
}

void Stream::post(const KnownRecord& known, const Description* ofRef) {
  Record record = known.record;
  const bool isRow = record.head.type == OX_MSG_STREAM_DATA;
  Description description = describe(known);
  require(description || !isRow, "the stream's scheme does not describe the row");
  requireRoom(false);
  if (!description) {
    const char* const message = record.data.msg_name ? record.data.msg_name : "";
    if (isLogging()) {
      writeLog("info", "ox_pub_post: the scheme of stream=" + name_ +
                           " does not describe message " + oneLine(message) +
                           ": its listeners get a parse error");
    }
    const std::int32_t code = OX_ERR_INVALIDARGUMENT;
    addMessage(makeMessage(OX_MSG_PARSEERR, &code, sizeof code, message, record.data.user_id));
    return;
  }
  record.data.msg_index = description->index;
  record.data.msg_id = description->id;
  if (!isRow) return addMessage(copyOf(record, std::move(description), ofRef));
  record.row.rev = rev_ + 1;
  addRow(copyOf(record, std::move(description)));
}

void Stream::clear(const KnownRecord& known) {
  const Description description = describe(known);
  require(description && known.record.head.type == OX_MSG_STREAM_DATA,
          "only rows that the stream's scheme describes can be cleared");
  requireRoom(true);
  removeRows(description->position, known.record.row.rev);
}

std::shared_ptr<Stream> Stream::follow(const std::string& name, Listener& lsn, std::uint32_t life,
                                       std::int64_t seen) {
  std::shared_ptr<Stream> stream = named(name);
  stream->listeners_.push_back(&lsn);
  enqueue(lsn, OX_MSG_OPEN);
  if (lsn.replica) stream->enqueueSnapshot(lsn, life == stream->life_ ? seen : 0);
  return stream;
}

void Stream::unfollow(Listener& lsn) {
  eraseFrom(listeners_, lsn);
}

std::string Stream::replState(std::int64_t seen) const {
  return "lifenum=" + std::to_string(life_) + ";rev=" + std::to_string(seen);
}

void Stream::addMessage(const MessagePtr& message) {
  for (Listener* lsn : listeners_) enqueue(*lsn, message->record.head.type, message, true);
}

void Stream::addRow(const MessagePtr& row) {
  const ox_msg_streamdata_t& record = row->record.row;
  rev_ = record.rev;
  rows_[keyOf(*row->own.description, record)] = row;
  for (Listener* lsn : listeners_) {
    if (lsn->replica) {
      enqueueChange(*lsn, OX_MSG_STREAM_DATA, row);
    } else {
      enqueue(*lsn, OX_MSG_STREAM_DATA, row, true);
    }
  }
}

void Stream::removeRows(std::uint32_t table, std::int64_t olderThan) {
  for (auto at = rows_.begin(); at != rows_.end();) {
    const Message& row = *at->second;
    const bool goes = row.own.description->position == table && row.record.row.rev < olderThan;
    at = goes ? rows_.erase(at) : std::next(at);
  }
  Cleared& cleared = cleared_[table];
  // Later rows stay, even if their revisions are lower than `olderThan`.
  const std::int64_t oldest = std::min(olderThan, rev_ + 1);
  if (oldest > cleared.oldest) cleared = {oldest, rev_};
  const MessagePtr message = clearedMessage(table, olderThan);
  for (Listener* lsn : listeners_) {
    if (lsn->replica) enqueueChange(*lsn, OX_MSG_ZRREPL_CLEARDELETED, message);
  }
}

void Stream::closeListeners() {
  const MessagePtr close = makeMessage(OX_MSG_CLOSE, std::int32_t{kStreamClosed});
  for (Listener* lsn : std::exchange(listeners_, {})) {
    lsn->state = kClosing;
    if (lsn->replica) enqueue(*lsn, OX_MSG_ZRREPL_STATE);
    enqueue(*lsn, OX_MSG_CLOSE, close);
  }
}

// The description of a message in the stream's scheme; null if there is none, or if the host has
// changed the size of the message.
Description Stream::describe(const KnownRecord& known) const {
  const ox_msg_t& head = known.record.head;
  const Scheme::Message* const source = known.description ? known.description->get() : nullptr;
  if (!source || source->description.size != (head.data ? head.data_size : 0)) return {};
  if (source->scheme == scheme_.get()) return *known.description;
  const auto isItsScheme = [source](const auto& each) { return each.get() == source->scheme; };
  if (std::none_of(schemes_.begin(), schemes_.end(), isItsScheme)) return {};
  return {scheme_, scheme_->find(OX_KEY_NAME, source->description.name)};
}

// Refuses a post unless it fits into the queue of every listener that gets it.
void Stream::requireRoom(bool replicasOnly) const {
  bool full = false;
  for (const Listener* lsn : listeners_) {
    Connection& conn = *lsn->conn;
    if (lsn->replica || !replicasOnly) full |= conn.posted + ++conn.incoming > conn.queueLimit;
  }
  for (const Listener* lsn : listeners_) lsn->conn->incoming = 0;
  require(!full, "the queue of a receiving connection is full", kQueueFull);
}

void Stream::enqueueSnapshot(Listener& lsn, std::int64_t from) const {
  std::map<std::int64_t, MessagePtr> rows;
  for (const auto& [key, row] : rows_) {
    const std::int64_t rev = row->record.row.rev;
    if (rev > from) rows.emplace(rev, row);
  }
  lsn.seen = from;
  enqueue(lsn, OX_MSG_ZRREPL_LIFENUM,
          makeMessage(OX_MSG_ZRREPL_LIFENUM, ox_data_lifenum_t{life_, 0}));
  enqueue(lsn, OX_MSG_TN_BEGIN);
  for (const auto& [table, cleared] : cleared_) {
    // A state with the revision at which rows were cleared may be older or newer than that.
    if (from > 0 && from <= cleared.at) {
      enqueue(lsn, OX_MSG_ZRREPL_CLEARDELETED, clearedMessage(table, cleared.oldest));
    }
  }
  for (const auto& [rev, row] : rows) enqueue(lsn, OX_MSG_STREAM_DATA, row);
  enqueue(lsn, OX_MSG_TN_COMMIT);
  enqueue(lsn, OX_MSG_ZRREPL_ONLINE);
}

}  // namespace standin
