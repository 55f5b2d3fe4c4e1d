#include "standin/stream.h"

#include "standin/environment.h"
#include "standin/log.h"

namespace standin {
namespace {

MessagePtr clearedMessage(std::uint32_t table, std::int64_t olderThan) {
  return makeMessage(OX_MSG_ZRREPL_CLEARDELETED, ox_data_cleardeleted_t{table, olderThan});
}

void enqueueChange(Listener& lsn, std::uint32_t type, const MessagePtr& change) REQUIRES(sMutex) {
  enqueue(lsn, OX_MSG_TN_BEGIN);
  enqueue(lsn, type, change, true);
  enqueue(lsn, OX_MSG_TN_COMMIT);
}

}  // namespace

Stream::Stream(const std::string& address, std::string name)
    : name_(std::move(name)), key_(address + '\n' + name_) {
  if (!isMirror()) life_ = newLifeNumber();
}

Stream::~Stream() {
  unregister();
}

std::shared_ptr<Stream> Stream::findOrMake(const Connection& conn, const std::string& name) {
  auto& streams = environment().streams;
  const std::string address = conn.transport ? conn.transport->address() : "";
  const auto found = streams.find(address + '\n' + name);
  if (found != streams.end()) return found->second.lock();
  auto stream = std::make_shared<Stream>(address, name);
  streams.emplace(stream->key_, stream);
  return stream;
}

// Removes the stream from the table of streams: the next publisher or listener that is opened on
// its name makes another stream.
void Stream::unregister() {
  auto& streams = environment().streams;
  const auto found = streams.find(key_);
  // Another stream may have replaced this one.
  if (found == streams.end()) return;
  const std::shared_ptr<Stream> stream = found->second.lock();
  if (!stream || stream.get() == this) streams.erase(found);
}

void Stream::join(Publisher& pub, const std::string& name,
                  const std::shared_ptr<const Scheme>& scheme) {
  std::shared_ptr<Stream> stream =
      pub.conn->transport ? joinOnServer(pub, name, scheme) : findOrMake(*pub.conn, name);
  if (!pub.sender && scheme && stream->scheme_ && !stream->scheme_->covers(*scheme)) {
    if (stream->publishers_ > 0) {
      throw Refusal{OX_ERR_INVALIDARGUMENT,
                    "stream=" + name + " has open publishers with another layout"};
    }
    stream->closeListeners();
    stream->unregister();
    stream = findOrMake(*pub.conn, name);
  }
  stream->add(scheme);
  ++stream->publishers_;
  pub.stream = std::move(stream);
}

void Stream::leave(const Publisher& pub) {
  --publishers_;
  if (pub.sender) return pub.sender->leave();
  if (publishers_ == 0) closeListeners();
}

void Stream::post(const Publisher& pub, const KnownRecord& known, const Description* ofRef,
                  std::chrono::milliseconds replyWithin) {
  Record record = known.record;
  const bool isRow = record.head.type == OX_MSG_STREAM_DATA;
  Description description = describe(known);
  require(description || !isRow, "the stream's scheme does not describe the row");
  if (!pub.sender) requireRoom(false);
  if (!description) {
    const char* const message = record.data.msg_name ? record.data.msg_name : "";
    if (isLogging()) {
      writeLog("info", "ox_pub_post: the scheme of stream=" + name_ +
                           " does not describe message " + oneLine(message) +
                           ": its listeners get a parse error");
    }
    const std::int32_t code = OX_ERR_INVALIDARGUMENT;
    return queueOrSend(
        pub, makeMessage(OX_MSG_PARSEERR, &code, sizeof code, message, record.data.user_id),
        replyWithin);
  }
  require(
      !isRow || !record.row.nulls || record.row.num_nulls == description->description.num_fields,
      "the row has another number of null flags than its message has fields");
  record.data.msg_index = description->index;
  record.data.msg_id = description->id;
  if (isRow) record.row.rev = pub.sender ? 0 : rev_ + 1;
  queueOrSend(pub, copyOf(record, std::move(description), ofRef), replyWithin);
}

// Queues the message for the listeners or, with a server, posts it through the publisher's sender.
void Stream::queueOrSend(const Publisher& pub, const MessagePtr& message,
                         std::chrono::milliseconds replyWithin) {
  // The publisher may be closed while its sender waits.
  if (const std::shared_ptr<Sender> sender = pub.sender) {
    return sender->post(*message, {pub.acknowledged, replyWithin});
  }
  message->record.head.type == OX_MSG_STREAM_DATA ? addRow(message) : addMessage(message);
}

void Stream::clear(const Publisher& pub, const KnownRecord& known) {
  const Description description = describe(known);
  require(description && known.record.head.type == OX_MSG_STREAM_DATA,
          "only rows that the stream's scheme describes can be cleared");
  if (const std::shared_ptr<Sender> sender = pub.sender) {
    return sender->clear(description->position, known.record.row.rev, {pub.acknowledged, {}});
  }
  requireRoom(true);
  removeRows(description->position, known.record.row.rev);
}

void Stream::follow(const std::string& name, Listener& lsn, std::uint32_t life, std::int64_t seen) {
  do {
    lsn.stream = findOrMake(*lsn.conn, name);
  } while (lsn.stream->isMirror() && !lsn.stream->awaitFollowed(lsn));
  Stream& stream = *lsn.stream;
  stream.listeners_.push_back(&lsn);
  enqueue(lsn, OX_MSG_OPEN);
  // A state with a revision that the stream has not reached is not a state of this stream.
  lsn.from = life == stream.life_ && seen >= 0 && seen <= stream.rev_ ? seen : 0;
  lsn.seen = lsn.from;
  lsn.awaitsRows = lsn.replica && lsn.from < stream.completeFrom_;
  if (lsn.replica && !lsn.awaitsRows) stream.enqueueSnapshot(lsn);
  if (stream.follower_) {
    if (lsn.awaitsRows) stream.follower_->request(lsn.from);
    stream.follower_->proceed();
  }
}

void Stream::unfollow(Listener& lsn) {
  eraseFrom(listeners_, lsn);
  stopFollowing();
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
  rows_[rowKey(*row)] = row;
  for (Listener* lsn : listeners_) {
    if (!lsn->replica) {
      enqueue(*lsn, OX_MSG_STREAM_DATA, row, true);
    } else if (!lsn->awaitsRows) {
      enqueueChange(*lsn, OX_MSG_STREAM_DATA, row);
    }
  }
}

void Stream::removeRows(std::uint32_t table, std::int64_t olderThan) {
  // Limited, so that rows which are posted later are not removed, even if their revisions are
  // lower.
  remove({table, std::min(olderThan, rev_ + 1), rev_});
  const MessagePtr message = clearedMessage(table, olderThan);
  for (Listener* lsn : listeners_) {
    if (lsn->replica && !lsn->awaitsRows) {
      enqueueChange(*lsn, OX_MSG_ZRREPL_CLEARDELETED, message);
    }
  }
}

void Stream::remove(const ClearedTable& cleared) {
  for (auto at = rows_.begin(); at != rows_.end();) {
    const Message& row = *at->second;
    const bool removed =
        row.own.description->position == cleared.table && row.record.row.rev < cleared.oldest;
    at = removed ? rows_.erase(at) : std::next(at);
  }
  ClearedTable& known = cleared_[cleared.table];
  if (cleared.oldest > known.oldest) known = cleared;
}

void Stream::closeListeners() {
  for (Listener* lsn : std::exchange(listeners_, {})) close(*lsn, kStreamClosed);
  stopFollowing();
}

void Stream::close(Listener& lsn, std::int32_t reason) const {
  lsn.state = kClosing;
  if (lsn.replica) enqueue(lsn, OX_MSG_ZRREPL_STATE);
  enqueue(lsn, OX_MSG_CLOSE, makeMessage(OX_MSG_CLOSE, reason));
}

void Stream::add(const std::shared_ptr<const Scheme>& scheme) {
  if (!scheme_) scheme_ = scheme;
  if (scheme && std::find(schemes_.begin(), schemes_.end(), scheme) == schemes_.end()) {
    schemes_.push_back(scheme);
  }
}

// Returns the description of a message in the stream's scheme; null if there is none, or if the
// application has changed the size of the message.
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

void Stream::enqueueSnapshot(Listener& lsn) const {
  std::vector<std::pair<std::int64_t, const MessagePtr*>> rows;
  for (const auto& [key, row] : rows_) {
    const std::int64_t rev = row->record.row.rev;
    if (rev > lsn.from) rows.emplace_back(rev, &row);
  }
  std::sort(rows.begin(), rows.end());
  enqueue(lsn, OX_MSG_ZRREPL_LIFENUM,
          makeMessage(OX_MSG_ZRREPL_LIFENUM, ox_data_lifenum_t{life_, 0}));
  enqueue(lsn, OX_MSG_TN_BEGIN);
  for (const auto& [table, cleared] : cleared_) {
    // A state with the revision of a removal may be from before or after the removal. The removal
    // is therefore repeated.
    if (lsn.from > 0 && lsn.from <= cleared.at) {
      enqueue(lsn, OX_MSG_ZRREPL_CLEARDELETED, clearedMessage(table, cleared.oldest));
    }
  }
  for (const auto& [rev, row] : rows) enqueue(lsn, OX_MSG_STREAM_DATA, *row);
  enqueue(lsn, OX_MSG_TN_COMMIT);
  enqueue(lsn, OX_MSG_ZRREPL_ONLINE);
}

}  // namespace standin
