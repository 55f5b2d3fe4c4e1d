// Joins and follows streams of a server, and receives their changes.
#include "standin/environment.h"
#include "standin/log.h"
#include "standin/stream.h"

namespace standin {

std::shared_ptr<Stream> Stream::joinOnServer(Publisher& pub, const std::string& name,
                                             const std::shared_ptr<const Scheme>& scheme) {
  const std::shared_ptr<Transport> transport = pub.conn->transport;
  const Transport::Joined joined = transport->join(name, scheme);
  if (environment().publishers.count(pub.handle) == 0 || pub.conn->transport != transport) {
    joined.sender->leave();
    throw Refusal{OX_ERR_INVALIDSTATE, "the publisher was closed while it was being opened"};
  }
  std::shared_ptr<Stream> stream = findOrMake(*pub.conn, name);
  if (stream->life_ != 0 && stream->life_ != joined.life) {
    // The listeners of the old stream are closed when its log has been read to the end.
    stream->unregister();
    stream = findOrMake(*pub.conn, name);
  }
  stream->life_ = joined.life;
  if (!joined.scheme.empty()) stream->onScheme(joined.scheme);
  pub.sender = joined.sender;
  return stream;
}

// Returns false if the stream has been made anew meanwhile.
bool Stream::awaitFollowed(Listener& lsn) {
  const std::shared_ptr<Stream> self = lsn.stream;
  const std::shared_ptr<Transport> transport = lsn.conn->transport;
  if (!follower_) follower_ = transport->follow(name_, *this);
  ++openings_;
  try {
    follower_->awaitJoined();
  } catch (...) {
    --openings_;
    stopFollowing();
    throw;
  }
  --openings_;
  const auto found = environment().streams.find(key_);
  const bool current =
      found != environment().streams.end() && found->second.lock() == self && follower_;
  const bool isOpening =
      environment().listeners.count(lsn.handle) > 0 && lsn.conn->transport == transport;
  if (!current || !isOpening) stopFollowing();
  require(isOpening, "the listener was closed while it was being opened", OX_ERR_INVALIDSTATE);
  return current;
}

// Without a follower, the rows would no longer be updated.
void Stream::stopFollowing() {
  if (!follower_ || !listeners_.empty() || openings_ > 0) return;
  follower_.reset();
  rows_.clear();
  cleared_.clear();
}

void Stream::requestRows() {
  bool awaited = false;
  std::int64_t from = rev_;
  for (const Listener* lsn : listeners_) {
    if (!lsn->awaitsRows) continue;
    awaited = true;
    from = std::min(from, lsn->from);
  }
  if (awaited) follower_->request(from);
}

void Stream::onJoined(std::uint32_t life, std::int64_t rev) {
  if (life_ != 0 && life_ != life) return unregister();
  life_ = life;
  rev_ = completeFrom_ = rev;
  rows_.clear();
  cleared_.clear();
  requestRows();
}

std::shared_ptr<const Scheme> Stream::onScheme(const std::string& string) {
  if (scheme_) return scheme_;
  try {
    add(sharedScheme(string));
  } catch (const Refusal& refusal) {
    if (isLogging()) {
      writeLog("error", "stream=" + name_ +
                            ": the server has an invalid scheme, which is ignored: " +
                            oneLine(refusal.reason));
    }
  }
  return scheme_;
}

void Stream::onClearedBefore(const ClearedTable& cleared) {
  remove(cleared);
}

void Stream::onRetained(const MessagePtr& row) {
  MessagePtr& known = rows_[rowKey(*row)];
  if (!known || known->record.row.rev < row->record.row.rev) known = row;
}

void Stream::onOnline(std::int64_t from) {
  completeFrom_ = from;
  for (Listener* lsn : listeners_) {
    if (!lsn->awaitsRows || lsn->from < from) continue;
    lsn->awaitsRows = false;
    enqueueSnapshot(*lsn);
  }
}

// An empty queue has room for any change, so that a limit below the number of listeners does not
// stop the stream.
bool Stream::hasRoom() {
  bool room = true;
  for (const Listener* lsn : listeners_) {
    Connection& conn = *lsn->conn;
    ++conn.incoming;
    if (conn.posted == 0 || conn.posted + conn.incoming <= conn.queueLimit) continue;
    conn.crowded = true;
    room = false;
  }
  for (const Listener* lsn : listeners_) lsn->conn->incoming = 0;
  return room;
}

void Stream::onRow(const MessagePtr& row) {
  addRow(row);
}

void Stream::onMessage(const MessagePtr& message) {
  addMessage(message);
}

void Stream::onCleared(std::uint32_t table, std::int64_t olderThan) {
  removeRows(table, olderThan);
}

void Stream::onLost() {
  writeLog("error", "stream=" + name_ +
                        ": changes were discarded by the server before they were read: replica "
                        "listeners get the changed rows, other listeners are closed");
  for (Listener* lsn : std::vector(listeners_)) {
    if (lsn->replica) {
      if (!lsn->awaitsRows) lsn->from = rev_;
      lsn->awaitsRows = true;
    } else {
      eraseFrom(listeners_, *lsn);
      close(*lsn, kMessagesLost);
    }
  }
  stopFollowing();
}

void Stream::onEnd(bool anew) {
  if (anew) unregister();
  closeListeners();
}

}  // namespace standin
