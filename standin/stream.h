// A stream: its scheme, its rows and the listeners that are open on it.
#ifndef OXLI_STANDIN_STREAM_H
#define OXLI_STANDIN_STREAM_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "standin/delivery.h"
#include "standin/objects.h"

namespace standin {

// Publishers and listeners that were opened on a stream own it together.
//
// They use the first two groups of functions. What arrives in the stream passes through the third
// group, which alone changes rows and queues changes. A post in this process arrives at once, on
// the thread that posts.
class Stream {
 public:
  explicit Stream(std::string name);
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() REQUIRES(sMutex);

  // For publishers. Finds or makes the stream of that name for one more open publisher, whose
  // scheme may be null. If the stream's scheme does not cover it, it is refused while another
  // publisher is open; otherwise the stream is replaced by a new one. When the last publisher
  // leaves, the listeners are closed.
  static std::shared_ptr<Stream> join(const std::string& name,
                                      const std::shared_ptr<const Scheme>& scheme) REQUIRES(sMutex);
  void leave() REQUIRES(sMutex);
  // Posts a copy of a record, unless the queue of a receiver is full. If the stream's scheme does
  // not describe the record, a row is refused, and any other message becomes a parse error.
  void post(const KnownRecord& known, const Description* ofRef) REQUIRES(sMutex);
  // Removes the rows of the record's message whose revisions are lower than the record's.
  void clear(const KnownRecord& known) REQUIRES(sMutex);

  // For listeners. Finds or makes the stream of that name and queues what the listener gets first.
  // A replica listener gets all rows; if `life` is the life number of the stream, it gets what has
  // changed since the revision `seen`.
  static std::shared_ptr<Stream> follow(const std::string& name, Listener& lsn, std::uint32_t life,
                                        std::int64_t seen) REQUIRES(sMutex);
  void unfollow(Listener& lsn) REQUIRES(sMutex);
  // The setting `replstate` of a listener that has received the rows up to the revision `seen`.
  std::string replState(std::int64_t seen) const;

  // What arrives. The revision of a row is higher than that of the row before.
  void addMessage(const MessagePtr& message) REQUIRES(sMutex);
  void addRow(const MessagePtr& row) REQUIRES(sMutex);
  void removeRows(std::uint32_t table, std::int64_t olderThan) REQUIRES(sMutex);
  void closeListeners() REQUIRES(sMutex);

  // Null until a publisher with a scheme has joined.
  const std::shared_ptr<const Scheme>& scheme() const REQUIRES(sMutex) { return scheme_; }

 private:
  struct Cleared {
    std::int64_t oldest = 0;  // the lowest revision that a row can have
    std::int64_t at = 0;      // the revision of the stream when rows were cleared
  };

  static std::shared_ptr<Stream> named(const std::string& name) REQUIRES(sMutex);
  Description describe(const KnownRecord& known) const REQUIRES(sMutex);
  void requireRoom(bool replicasOnly) const REQUIRES(sMutex);
  void enqueueSnapshot(Listener& lsn, std::int64_t from) const REQUIRES(sMutex);

  const std::string name_;
  const std::uint32_t life_;
  std::shared_ptr<const Scheme> scheme_ GUARDED_BY(sMutex);
  // Of all publishers that have joined. `scheme_` covers them.
  std::vector<std::shared_ptr<const Scheme>> schemes_ GUARDED_BY(sMutex);
  std::vector<Listener*> listeners_ GUARDED_BY(sMutex);
  std::size_t publishers_ GUARDED_BY(sMutex) = 0;
  std::int64_t rev_ GUARDED_BY(sMutex) = 0;                              // of the latest row
  std::unordered_map<std::string, MessagePtr> rows_ GUARDED_BY(sMutex);  // by key
  std::map<std::uint32_t, Cleared> cleared_ GUARDED_BY(sMutex);          // by table
};

}  // namespace standin

#endif  // OXLI_STANDIN_STREAM_H
