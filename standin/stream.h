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
#include "standin/transport.h"

namespace standin {

// Publishers and listeners that were opened on a stream own it together.
//
// Publishers use the first group of functions, listeners the second. Every change passes through
// the third group, which queues it for the listeners. Without a server, posting calls the third
// group at once, on the posting thread. With a server, the stream is a mirror: posts are sent
// through the sender of their publisher, and while a listener is open, a follower passes the
// changes of the server to the third group.
class Stream final : private Receiver {
 public:
  // `address` is the address of the server; it is empty for a stream of this process.
  Stream(const std::string& address, std::string name);
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() REQUIRES(sMutex);

  // For publishers. Adds one open publisher to the stream of that name, which is made if necessary.
  // `scheme` may be null. If the stream's scheme does not cover `scheme`, the publisher is refused
  // while another publisher is open; otherwise a new stream replaces that stream. When the last
  // publisher leaves, the listeners are closed. With a server, joining waits and releases sMutex.
  static void join(Publisher& pub, const std::string& name,
                   const std::shared_ptr<const Scheme>& scheme) REQUIRES(sMutex);
  void leave(const Publisher& pub) REQUIRES(sMutex);
  // Posts a copy of a record. Without a server, refuses it if the queue of a listener's connection
  // is full. If the stream's scheme does not describe the record, a row is refused, and any other
  // message becomes a parse error.
  void post(const Publisher& pub, const KnownRecord& known, const Description* ofRef,
            std::chrono::milliseconds replyWithin) REQUIRES(sMutex);
  // Removes the rows of the record's message whose revisions are lower than the record's.
  void clear(const Publisher& pub, const KnownRecord& known) REQUIRES(sMutex);

  // For listeners. Finds or makes the stream of that name and queues the first messages of the
  // listener. If `life` is the life number of the stream, a replica listener gets the changes since
  // the revision `seen`; otherwise it gets all rows. With a server, following waits and releases
  // sMutex.
  static void follow(const std::string& name, Listener& lsn, std::uint32_t life, std::int64_t seen)
      REQUIRES(sMutex);
  void unfollow(Listener& lsn) REQUIRES(sMutex);
  // Returns the value of the setting `replstate` for a listener that has received the rows up to
  // the revision `seen`.
  std::string replState(std::int64_t seen) const REQUIRES(sMutex);

  // Change the stream and queue the change for its listeners. The revision of a row must be higher
  // than that of the row before.
  void addMessage(const MessagePtr& message) REQUIRES(sMutex);
  void addRow(const MessagePtr& row) REQUIRES(sMutex);
  void removeRows(std::uint32_t table, std::int64_t olderThan) REQUIRES(sMutex);
  void closeListeners() REQUIRES(sMutex);

  // Null until a publisher with a scheme has joined.
  const std::shared_ptr<const Scheme>& scheme() const REQUIRES(sMutex) { return scheme_; }

 private:
  static std::shared_ptr<Stream> findOrMake(const Connection& conn, const std::string& name)
      REQUIRES(sMutex);
  bool isMirror() const { return key_.front() != '\n'; }
  void unregister() REQUIRES(sMutex);
  Description describe(const KnownRecord& known) const REQUIRES(sMutex);
  void queueOrSend(const Publisher& pub, const MessagePtr& message,
                   std::chrono::milliseconds replyWithin) REQUIRES(sMutex);
  void requireRoom(bool replicasOnly) const REQUIRES(sMutex);
  void close(Listener& lsn, std::int32_t reason) const REQUIRES(sMutex);
  void add(const std::shared_ptr<const Scheme>& scheme) REQUIRES(sMutex);
  void remove(const ClearedTable& cleared) REQUIRES(sMutex);
  void enqueueSnapshot(Listener& lsn) const REQUIRES(sMutex);

  // For a stream of a server.
  static std::shared_ptr<Stream> joinOnServer(Publisher& pub, const std::string& name,
                                              const std::shared_ptr<const Scheme>& scheme)
      REQUIRES(sMutex);
  bool awaitFollowed(Listener& lsn) REQUIRES(sMutex);
  void stopFollowing() REQUIRES(sMutex);
  void requestRows() REQUIRES(sMutex);
  void onJoined(std::uint32_t life, std::int64_t rev) override REQUIRES(sMutex);
  std::shared_ptr<const Scheme> onScheme(const std::string& scheme) override REQUIRES(sMutex);
  void onClearedBefore(const ClearedTable& cleared) override REQUIRES(sMutex);
  void onRetained(const MessagePtr& row) override REQUIRES(sMutex);
  void onOnline(std::int64_t from) override REQUIRES(sMutex);
  bool hasRoom() override REQUIRES(sMutex);
  void onRow(const MessagePtr& row) override REQUIRES(sMutex);
  void onMessage(const MessagePtr& message) override REQUIRES(sMutex);
  void onCleared(std::uint32_t table, std::int64_t olderThan) override REQUIRES(sMutex);
  void onLost() override REQUIRES(sMutex);
  void onEnd(bool anew) override REQUIRES(sMutex);

  const std::string name_;
  const std::string key_;                      // address and name
  std::uint32_t life_ GUARDED_BY(sMutex) = 0;  // 0 until a server has returned it
  std::shared_ptr<const Scheme> scheme_ GUARDED_BY(sMutex);
  // The schemes of all publishers that have joined. `scheme_` covers them.
  std::vector<std::shared_ptr<const Scheme>> schemes_ GUARDED_BY(sMutex);
  std::vector<Listener*> listeners_ GUARDED_BY(sMutex);
  std::size_t publishers_ GUARDED_BY(sMutex) = 0;
  std::int64_t rev_ GUARDED_BY(sMutex) = 0;                              // of the latest row
  std::unordered_map<std::string, MessagePtr> rows_ GUARDED_BY(sMutex);  // by key
  std::map<std::uint32_t, ClearedTable> cleared_ GUARDED_BY(sMutex);     // by table

  // Null while no listener is open or being opened.
  std::unique_ptr<Follower> follower_ GUARDED_BY(sMutex);
  std::size_t openings_ GUARDED_BY(sMutex) = 0;       // listeners that wait for onJoined()
  std::int64_t completeFrom_ GUARDED_BY(sMutex) = 0;  // rows after it are in `rows_`
};

}  // namespace standin

#endif  // OXLI_STANDIN_STREAM_H
