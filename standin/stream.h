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

// A listener or publisher that was opened on a stream keeps it alive; it ends with the last of
// them.
//
// Publishers and listeners use it through the first two groups of functions. What they post comes
// back through the third one: in this process at once, with the lock acquired by the thread that
// posts. Only these functions change rows and fill queues.
class Stream {
 public:
  explicit Stream(std::string name);
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() REQUIRES(sMutex);

  // For publishers. join() returns the stream of that name for one more open publisher, whose
  // scheme may be null. The stream's scheme must cover it; if no publisher is open, a stream made
  // anew takes the place of one whose scheme does not. The last publisher that leaves ends the
  // stream.
  static std::shared_ptr<Stream> join(const std::string& name,
                                      const std::shared_ptr<const Scheme>& scheme) REQUIRES(sMutex);
  void leave() REQUIRES(sMutex);
  // Posts a copy of a record. A row that the stream's scheme does not describe is refused, any
  // other such message becomes a parse error. Refused, too, if the queue of a receiver is full.
  void post(const KnownRecord& known, const Description& ofRef) REQUIRES(sMutex);
  // Clears the rows of the record's message that are older than the record's revision.
  void clear(const KnownRecord& known) REQUIRES(sMutex);

  // For listeners. follow() returns the stream of that name, made if there is none, and queues what
  // the listener gets first: a replica all rows, or with the stream's life number in `life` what
  // has changed since the revision `seen`.
  static std::shared_ptr<Stream> follow(const std::string& name, Listener& lsn, std::uint32_t life,
                                        std::int64_t seen) REQUIRES(sMutex);
  void unfollow(Listener& lsn) REQUIRES(sMutex);
  // The string with which a replica resumes that has seen the rows up to `seen`.
  std::string replState(std::int64_t seen) const;

  // What arrives, for the listeners. A row has a revision later than the row before.
  void addMessage(const MessagePtr& message) REQUIRES(sMutex);
  void addRow(const MessagePtr& row) REQUIRES(sMutex);
  void removeRows(std::uint32_t table, std::int64_t olderThan) REQUIRES(sMutex);
  void end() REQUIRES(sMutex);  // closes the listeners

  // Null as long as no publisher with a scheme has joined.
  const Scheme* scheme() const REQUIRES(sMutex);

 private:
  struct Cleared {
    std::int64_t oldest = 0;  // no row has a lower revision
    std::int64_t at = 0;      // the stream's revision when rows were cleared
  };

  static std::shared_ptr<Stream> named(const std::string& name) REQUIRES(sMutex);
  Description describe(const KnownRecord& known) const REQUIRES(sMutex);
  void requireRoom(bool replicasOnly) const REQUIRES(sMutex);
  void enqueueSnapshot(Listener& lsn, std::int64_t from) const REQUIRES(sMutex);

  const std::string name_;
  const std::uint32_t life_;
  // The first publisher's is the stream's; it covers the others, whose descriptions stay valid.
  std::vector<std::shared_ptr<const Scheme>> schemes_ GUARDED_BY(sMutex);
  std::vector<Listener*> listeners_ GUARDED_BY(sMutex);
  std::size_t publishers_ GUARDED_BY(sMutex) = 0;
  std::int64_t rev_ GUARDED_BY(sMutex) = 0;                              // of the latest row
  std::unordered_map<std::string, MessagePtr> rows_ GUARDED_BY(sMutex);  // by key
  std::map<std::uint32_t, Cleared> cleared_ GUARDED_BY(sMutex);          // by table
};

}  // namespace standin

#endif  // OXLI_STANDIN_STREAM_H
