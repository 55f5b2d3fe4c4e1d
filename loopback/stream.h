// Named streams: who publishes, who listens, and the rows that are kept. REQUIRES throughout: the
// lock.
#ifndef OXLI_LOOPBACK_STREAM_H
#define OXLI_LOOPBACK_STREAM_H

#include "loopback/objects.h"

namespace inproc {

struct Row {
  std::string key;  // empty: it has none
  std::uint32_t table;
  StoredPtr message;
};

// Lives as long as a listener or publisher that was opened on it.
struct Stream {
  std::vector<std::shared_ptr<Scheme>> schemes;  // all that were used: descriptions stay valid
  std::shared_ptr<Scheme> scheme;
  std::vector<Listener*> listeners;  // the open ones
  std::size_t publishers = 0;        // open ones
  bool retains = false;
  std::uint32_t life = 1;
  std::int64_t rev = 0;
  std::map<std::int64_t, Row> rows;                      // by revision
  std::unordered_map<std::string, std::int64_t> latest;  // revision by key
  std::map<std::uint32_t, std::int64_t> cleared;         // revision up to which, by table
};

std::shared_ptr<Stream> streamNamed(const std::string& name);

// REQUIRES: the publisher's mode and stream are set. `scheme`: its own, or null.
void openPublisher(Publisher& pub, const std::shared_ptr<Scheme>& scheme);
void closePublisher(Publisher& pub);

// Queues what a replica listener gets first: the rows later than `from`.
void sendSnapshot(Stream& stream, Listener& lsn, std::int64_t from);
// `message`: the description of a row; null for any other message.
void publish(Stream& stream, const StoredPtr& stored, const Scheme::Message* message);
void clearDeleted(Stream& stream, std::uint32_t table, std::int64_t rev);

}  // namespace inproc

#endif  // OXLI_LOOPBACK_STREAM_H
