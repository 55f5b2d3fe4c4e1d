#include "loopback/stream.h"

#include <algorithm>

#include "loopback/delivery.h"

namespace inproc {
namespace {

// One object for equal texts, so that the schemes of a stream are told apart by their addresses.
std::shared_ptr<Scheme> shared(Stream& stream, const std::shared_ptr<Scheme>& scheme) {
  for (const std::shared_ptr<Scheme>& known : stream.schemes) {
    if (known->text == scheme->text) return known;
  }
  return stream.schemes.emplace_back(scheme);
}

// Rows of another scheme mean nothing in the new one: the stream begins a new life.
void adopt(Stream& stream, const std::shared_ptr<Scheme>& scheme) {
  const bool replaced = stream.scheme && stream.scheme != scheme;
  stream.scheme = scheme;
  if (!replaced) return;
  ++stream.life;
  stream.rev = 0;
  stream.rows.clear();
  stream.latest.clear();
  stream.cleared.clear();
  for (Listener* lsn : stream.listeners) {
    if (lsn->replica) sendSnapshot(stream, *lsn, 0);
  }
}

void retain(Stream& stream, const StoredPtr& stored, const Scheme::Message& message) {
  Row row{{}, message.position, stored};
  if (!message.key.empty()) {
    row.key = std::to_string(message.position) + ':';
    for (const ox_field_desc_t* field : message.key) {
      row.key.append(static_cast<const char*>(stored->data) + field->offset, field->size);
    }
    std::int64_t& latest = stream.latest[row.key];
    stream.rows.erase(latest);
    latest = stored->rev;
  }
  stream.rows.emplace(stored->rev, std::move(row));
}

StoredPtr clearedMessage(std::uint32_t table, std::int64_t rev) {
  const ox_data_cleardeleted_t cleared{table, rev};
  return serviceMessage(OX_MSG_ZRREPL_CLEARDELETED, &cleared, sizeof cleared);
}

void enqueueChange(Listener& lsn, std::uint32_t type, const StoredPtr& change) {
  enqueue(lsn, OX_MSG_TN_BEGIN);
  enqueue(lsn, type, change);
  enqueue(lsn, OX_MSG_TN_COMMIT);
}

}  // namespace

std::shared_ptr<Stream> streamNamed(const std::string& name) {
  std::weak_ptr<Stream>& known = gateway().streams[name];
  std::shared_ptr<Stream> stream = known.lock();
  if (!stream) known = stream = std::make_shared<Stream>();
  return stream;
}

void openPublisher(Publisher& pub, const std::shared_ptr<Scheme>& scheme) {
  Stream& stream = *pub.stream;
  pub.scheme = scheme ? shared(stream, scheme) : nullptr;
  if (pub.scheme && (stream.publishers == 0 || !stream.scheme)) adopt(stream, pub.scheme);
  ++stream.publishers;
  stream.retains = stream.retains || pub.replica;
  pub.open = true;
}

void closePublisher(Publisher& pub) {
  pub.open = false;
  Stream& stream = *pub.stream;
  if (--stream.publishers > 0) return;
  const std::int32_t reason = loopback::kStreamClosed;
  const StoredPtr close = serviceMessage(OX_MSG_CLOSE, &reason, sizeof reason);
  for (Listener* lsn : std::exchange(stream.listeners, {})) {
    lsn->state = kClosing;
    if (lsn->replica) enqueue(*lsn, OX_MSG_ZRREPL_STATE);
    enqueue(*lsn, OX_MSG_CLOSE, close);
  }
}

void sendSnapshot(Stream& stream, Listener& lsn, std::int64_t from) {
  lsn.life = stream.life;
  lsn.seen = from;
  const ox_data_lifenum_t life{stream.life, 0};
  enqueue(lsn, OX_MSG_ZRREPL_LIFENUM, serviceMessage(OX_MSG_ZRREPL_LIFENUM, &life, sizeof life));
  enqueue(lsn, OX_MSG_TN_BEGIN);
  if (from > 0) {
    for (const auto& [table, rev] : stream.cleared) {
      enqueue(lsn, OX_MSG_ZRREPL_CLEARDELETED, clearedMessage(table, rev));
    }
  }
  for (auto row = stream.rows.upper_bound(from); row != stream.rows.end(); ++row) {
    enqueue(lsn, OX_MSG_STREAM_DATA, row->second.message);
  }
  enqueue(lsn, OX_MSG_TN_COMMIT);
  enqueue(lsn, OX_MSG_ZRREPL_ONLINE);
}

void publish(Stream& stream, const StoredPtr& stored, const Scheme::Message* message) {
  if (message && stream.retains) retain(stream, stored, *message);
  for (Listener* lsn : stream.listeners) {
    if (message && lsn->replica) {
      enqueueChange(*lsn, OX_MSG_STREAM_DATA, stored);
    } else {
      enqueue(*lsn, message ? std::uint32_t{OX_MSG_DATA} : stored->type, stored);
    }
  }
}

void clearDeleted(Stream& stream, std::uint32_t table, std::int64_t rev) {
  for (auto row = stream.rows.begin(); row != stream.rows.end() && row->first < rev;) {
    if (row->second.table != table) {
      ++row;
      continue;
    }
    stream.latest.erase(row->second.key);
    row = stream.rows.erase(row);
  }
  std::int64_t& cleared = stream.cleared[table];
  cleared = std::max(cleared, rev);
  const StoredPtr message = clearedMessage(table, rev);
  for (Listener* lsn : stream.listeners) {
    if (lsn->replica) enqueueChange(*lsn, OX_MSG_ZRREPL_CLEARDELETED, message);
  }
}

}  // namespace inproc
