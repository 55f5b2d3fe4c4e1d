// Connects streams of this process with a server: posts are sent through a Sender, and the changes
// of a stream are passed to a Receiver. Without a Transport, a stream exists in this process only.
//
// All functions are called with sMutex acquired. Functions that wait release sMutex while they
// wait: their callers must then check again everything that it guards.
#ifndef OXLI_STANDIN_TRANSPORT_H
#define OXLI_STANDIN_TRANSPORT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "standin/objects.h"

namespace standin {

// A removal of rows of one table. The rows of one message of the scheme are a table.
struct ClearedTable {
  std::uint32_t table = 0;  // position of the table's message in the scheme
  std::int64_t oldest = 0;  // rows with lower revisions were removed
  std::int64_t at = 0;      // the revision of the stream at the removal
};

// Receives the changes of a stream. Called on a thread of the transport.
class Receiver {
 public:
  // Called before anything else, and again after onLost(), with the life number and the revision of
  // the stream. Only later changes follow; rows that are retained already are passed if they are
  // requested.
  virtual void onJoined(std::uint32_t life, std::int64_t rev) REQUIRES(sMutex) = 0;
  // Sets the scheme of the stream, unless it has one. Returns the scheme of the stream, or null if
  // it has none because the string is invalid.
  virtual std::shared_ptr<const Scheme> onScheme(const std::string& scheme) REQUIRES(sMutex) = 0;
  // Called after onJoined() for each table of which rows were removed before.
  virtual void onClearedBefore(const ClearedTable& cleared) REQUIRES(sMutex) = 0;
  // Passes a requested row. A later row with the same key may have been passed before.
  virtual void onRetained(const MessagePtr& row) REQUIRES(sMutex) = 0;
  // Called when all rows with revisions higher than `from` have been passed.
  virtual void onOnline(std::int64_t from) REQUIRES(sMutex) = 0;

  // Returns whether the queue of each open listener has room for one more change. After false,
  // environment().room is notified when there is room again.
  virtual bool hasRoom() REQUIRES(sMutex) = 0;
  // onRow(), onMessage() and onCleared() pass the changes in the order of the server. They are
  // called only while hasRoom() returns true.
  virtual void onRow(const MessagePtr& row) REQUIRES(sMutex) = 0;
  virtual void onMessage(const MessagePtr& message) REQUIRES(sMutex) = 0;
  virtual void onCleared(std::uint32_t table, std::int64_t olderThan) REQUIRES(sMutex) = 0;

  // Called when the server has discarded changes before they were read. onJoined() is called next.
  virtual void onLost() REQUIRES(sMutex) = 0;
  // Called with false when the last publisher has left. Called with true when a publisher has made
  // the stream anew, or when the server has lost changes that it had acknowledged.
  virtual void onEnd(bool anew) REQUIRES(sMutex) = 0;

 protected:
  ~Receiver() = default;
};

// Follows a stream until this object is destroyed. The receiver is not called afterwards.
class Follower {
 public:
  virtual ~Follower() = default;
  // Waits until onJoined() has been called. Refuses with kNoServer if connecting fails, or if it
  // takes longer than twice the server timeout.
  virtual void awaitJoined() REQUIRES(sMutex) = 0;
  // Starts passing changes to the receiver; none is passed before the first call.
  virtual void proceed() REQUIRES(sMutex) = 0;
  // Requests the retained rows with revisions higher than `from`; onOnline() is called after them.
  virtual void request(std::int64_t from) REQUIRES(sMutex) = 0;
};

struct PostOptions {
  bool acknowledged = false;                // wait until the server acknowledges the post
  std::chrono::milliseconds replyWithin{};  // 0 if no reply is wanted
};

// An open publisher. Its posts reach the server in the order in which they were made.
class Sender {
 public:
  virtual ~Sender() = default;
  // Adds the message to the window, from which it is sent. Waits until the window has room; refuses
  // with kWindowFull if it has none within the post timeout. If the options ask for it, waits until
  // the server acknowledges the post; refuses with kNotAcknowledged if it does not within the same
  // timeout.
  virtual void post(const Message& message, const PostOptions& options) REQUIRES(sMutex) = 0;
  virtual void clear(std::uint32_t table, std::int64_t olderThan, const PostOptions& options)
      REQUIRES(sMutex) = 0;
  // Stores on the server that a request of another process, identified by its serial number, has a
  // reply. The server retains this for at least the time `within`.
  virtual void noteReply(std::uint64_t serial, std::chrono::milliseconds within)
      REQUIRES(sMutex) = 0;
  // Makes the publisher leave the stream after its posts. Does not wait; the posts are sent even if
  // awaitLeft() is not called.
  virtual void leave() REQUIRES(sMutex) = 0;
  // Waits until the publisher has left. Refuses with kNotAcknowledged if posts are not acknowledged
  // within the post timeout.
  virtual void awaitLeft() REQUIRES(sMutex) = 0;
};

// A connection to a server.
class Transport {
 public:
  struct Joined {
    std::uint32_t life = 0;
    std::string scheme;  // of the stream; empty if it has none
    std::shared_ptr<Sender> sender;
  };

  virtual ~Transport() = default;
  // Returns the server's address. Streams of the same name at the same address are the same stream.
  virtual const std::string& address() const = 0;
  // Waits until the server is reached, an attempt to connect fails, or close() is called, at most
  // for twice the server timeout. Refuses with kNoServer if the server is not reached, unless
  // close() was called.
  virtual void open() REQUIRES(sMutex) = 0;
  // Sets the deadline of close() to the post timeout from now. Otherwise close() itself sets it.
  virtual void startClosing() REQUIRES(sMutex) = 0;
  // Waits until all posts are acknowledged or the deadline has passed. Discards the posts that are
  // not acknowledged, and disconnects. Returns true if no post was discarded.
  virtual bool close() REQUIRES(sMutex) = 0;

  // Makes a sender, and waits until it has joined the stream. Refuses a scheme that the scheme of
  // the stream does not cover while other publishers are open.
  virtual Joined join(const std::string& stream, const std::shared_ptr<const Scheme>& scheme)
      REQUIRES(sMutex) = 0;
  virtual std::unique_ptr<Follower> follow(const std::string& stream, Receiver& receiver)
      REQUIRES(sMutex) = 0;
  // Asks the server whether another process has replied to the request with that serial number.
  // Calls `result` with the answer, with sMutex acquired; with false if the server cannot be
  // reached.
  virtual void checkReply(std::uint64_t serial, std::function<void(bool replied)> result)
      REQUIRES(sMutex) = 0;
  // For tests: returns whether everything that was posted through this connection has been passed
  // to the receivers of this process.
  virtual bool isSettled() const REQUIRES(sMutex) = 0;
};

struct TransportSettings {
  std::string server;
  std::chrono::milliseconds serverTimeout{3000};  // of connecting, and of each command
  std::chrono::milliseconds postTimeout{5000};    // of each post, and of closing
  std::size_t window = 1000;                      // maximum number of unacknowledged posts
  std::uint64_t logLimit = 64 << 20;              // bytes of changes that a stream's log retains
};

// Starts connecting to the server, on a thread of the transport. Refuses an invalid address.
// `onLink` is called on that thread with sMutex acquired: with true when the connection is
// established, with false when it is lost or an attempt to connect fails.
std::shared_ptr<Transport> makeTransport(const TransportSettings& settings,
                                         std::function<void(bool established)> onLink)
    REQUIRES(sMutex);

}  // namespace standin

#endif  // OXLI_STANDIN_TRANSPORT_H
