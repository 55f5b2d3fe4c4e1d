#include "loopback/gateway.h"

namespace inproc {
namespace {

std::string keyOf(const Scheme::Message& table, const ox_msg_streamdata_t& row) {
  std::string key = std::to_string(table.position) + ':';
  if (table.key.empty()) return key + std::to_string(row.rev);
  for (const ox_field_desc_t* field : table.key) {
    key.append(static_cast<const char*>(row.head.data) + field->offset, field->size);
  }
  return key;
}

void enqueueChange(Listener& lsn, std::uint32_t type, const MessagePtr& change) {
  enqueue(lsn, OX_MSG_TN_BEGIN);
  enqueue(lsn, type, change);
  enqueue(lsn, OX_MSG_TN_COMMIT);
}

}  // namespace

std::shared_ptr<Stream> streamNamed(const std::string& name) {
  std::weak_ptr<Stream>& known = gateway().streams[name];
  std::shared_ptr<Stream> stream = known.lock();
  if (!stream) {
    known = stream = std::make_shared<Stream>();
    stream->life = ++gateway().lastLife;
  }
  return stream;
}

void publish(Stream& stream, const MessagePtr& message, const Scheme::Message* row) {
  if (row) stream.rows[keyOf(*row, message->record.row)] = {row->position, message};
  const std::uint32_t type = message->record.head.type;
  for (Listener* lsn : stream.listeners) {
    if (row && lsn->replica) {
      enqueueChange(*lsn, type, message);
    } else {
      enqueue(*lsn, type, message);
    }
  }
}

void clearDeleted(Stream& stream, std::uint32_t table, std::int64_t rev) {
  for (auto at = stream.rows.begin(); at != stream.rows.end();) {
    const Stream::Row& row = at->second;
    const bool older = row.table == table && row.message->record.row.rev < rev;
    at = older ? stream.rows.erase(at) : std::next(at);
  }
  const ox_data_cleardeleted_t cleared{table, rev};
  const MessagePtr message = makeMessage(OX_MSG_ZRREPL_CLEARDELETED, &cleared, sizeof cleared);
  for (Listener* lsn : stream.listeners) {
    if (lsn->replica) enqueueChange(*lsn, OX_MSG_ZRREPL_CLEARDELETED, message);
  }
}

void sendSnapshot(Listener& lsn, std::int64_t from) {
  std::map<std::int64_t, MessagePtr> rows;
  for (const auto& [key, row] : lsn.stream->rows) {
    const std::int64_t rev = row.message->record.row.rev;
    if (rev > from) rows.emplace(rev, row.message);
  }
  lsn.seen = from;
  const ox_data_lifenum_t life{lsn.stream->life, 0};
  enqueue(lsn, OX_MSG_ZRREPL_LIFENUM, makeMessage(OX_MSG_ZRREPL_LIFENUM, &life, sizeof life));
  enqueue(lsn, OX_MSG_TN_BEGIN);
  for (const auto& [rev, message] : rows) enqueue(lsn, OX_MSG_STREAM_DATA, message);
  enqueue(lsn, OX_MSG_TN_COMMIT);
  enqueue(lsn, OX_MSG_ZRREPL_ONLINE);
}

void closePublisher(Publisher& pub) {
  pub.state = kClosed;
  pub.awaited.clear();
  Stream& stream = *pub.stream;
  if (--stream.publishers > 0) return;
  const std::int32_t reason = loopback::kStreamClosed;
  const MessagePtr close = makeMessage(OX_MSG_CLOSE, &reason, sizeof reason);
  for (Listener* lsn : std::exchange(stream.listeners, {})) {
    lsn->state = kClosing;
    if (lsn->replica) enqueue(*lsn, OX_MSG_ZRREPL_STATE);
    enqueue(*lsn, OX_MSG_CLOSE, close);
  }
}

}  // namespace inproc
