// How a stream is carried beyond this process: posts leave through a Sender, and what arrives is
// passed to a Receiver. Streams without a carriage stay in this process.
//
// All functions are called with sMutex acquired. Those that wait release it meanwhile, so that
// their callers check again afterwards what they rely on.
#ifndef OXLI_STANDIN_CARRIAGE_H
#define OXLI_STANDIN_CARRIAGE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "standin/objects.h"

namespace standin {

// A table of which rows were removed.
struct ClearedTable {
  std::uint32_t table = 0;  // position of the row's message in the scheme
  std::int64_t oldest = 0;  // the lowest revision that a row can have
  std::int64_t at = 0;      // the revision of the stream when rows were removed
};

// What arrives of a stream. Called on a thread of the carriage.
class Receiver {
 public:
  // The stream as it is when it is followed, before anything else arrives, and again after changes
  // may have been missed. Its retained rows arrive only if they are requested.
  virtual void onJoined(std::uint32_t life, std::int64_t rev) REQUIRES(sMutex) = 0;
  // Returns the scheme of that string, which is the stream's from now on; null if it is invalid.
  virtual std::shared_ptr<const Scheme> onScheme(const std::string& scheme) REQUIRES(sMutex) = 0;
  // Rows were removed earlier.
  virtual void onClearedBefore(const ClearedTable& cleared) REQUIRES(sMutex) = 0;
  // A row that was retained before the stream was followed. The stream may have a later one.
  virtual void onRetained(const MessagePtr& row) REQUIRES(sMutex) = 0;
  // All rows with higher revisions than that have arrived.
  virtual void onOnline(std::int64_t from) REQUIRES(sMutex) = 0;

  // Changes, in their order. Each may only be passed while hasRoom() returns true.
  virtual bool hasRoom() REQUIRES(sMutex) = 0;
  virtual void onRow(const MessagePtr& row) REQUIRES(sMutex) = 0;
  virtual void onMessage(const MessagePtr& message) REQUIRES(sMutex) = 0;
  virtual void onCleared(std::uint32_t table, std::int64_t olderThan) REQUIRES(sMutex) = 0;

  // Changes were missed for good. onJoined() is called next.
  virtual void onLost() REQUIRES(sMutex) = 0;
  // The last publisher has left, or a publisher has made the stream anew.
  virtual void onEnd(bool anew) REQUIRES(sMutex) = 0;

 protected:
  ~Receiver() = default;
};

// A stream that is followed until the object is destroyed; its receiver is not called afterwards.
class Follower {
 public:
  virtual ~Follower() = default;
  // Waits until onJoined() was called. Refuses with kNoServer if that takes too long.
  virtual void awaitJoined() REQUIRES(sMutex) = 0;
  // Lets changes arrive. Changes do not arrive before the first call.
  virtual void proceed() REQUIRES(sMutex) = 0;
  // Requests the retained rows with higher revisions than that; onOnline() is called after them.
  virtual void request(std::int64_t from) REQUIRES(sMutex) = 0;
};

struct PostOptions {
  bool acknowledged = false;                // wait until the server has written the post
  std::chrono::milliseconds replyWithin{};  // 0 if no reply is wanted
};

// An open publisher. Its posts arrive in their order.
class Sender {
 public:
  virtual ~Sender() = default;
  // Waits until the window has room. Refuses with kWindowFull if it has none in time, or with
  // kNotAcknowledged if the server has not acknowledged the post in time.
  virtual void post(const Message& message, const PostOptions& options) REQUIRES(sMutex) = 0;
  virtual void clear(std::uint32_t table, std::int64_t olderThan, const PostOptions& options)
      REQUIRES(sMutex) = 0;
  // Notes for another process, which asked with that serial number, that it was replied to.
  virtual void noteReply(std::uint64_t serial, std::chrono::milliseconds within)
      REQUIRES(sMutex) = 0;
  // Leaves the stream after all posts. They are sent even if nobody awaits them.
  virtual void leave() REQUIRES(sMutex) = 0;
  // Waits for that. Refuses with kNotAcknowledged if it takes too long.
  virtual void awaitLeft() REQUIRES(sMutex) = 0;
};

// A connection to a server.
class Carriage {
 public:
  struct Joined {
    std::uint32_t life = 0;
    std::string scheme;  // of the stream; empty if it has none
    std::shared_ptr<Sender> sender;
  };

  virtual ~Carriage() = default;
  // The server's address. Streams of the same name at the same address are the same stream.
  virtual const std::string& address() const = 0;
  // Waits until the server is reached, or close() is called. Refuses with kNoServer if it is not
  // reached.
  virtual void open() REQUIRES(sMutex) = 0;
  // Sets the time that close() waits until, from now.
  virtual void startClosing() REQUIRES(sMutex) = 0;
  // Waits until all posts are acknowledged, discards those that are not in time and disconnects.
  // Returns whether none was discarded.
  virtual bool close() REQUIRES(sMutex) = 0;

  // Waits until the publisher has joined. Refuses a scheme that the stream's does not cover while
  // other publishers are open.
  virtual Joined join(const std::string& stream, const std::shared_ptr<const Scheme>& scheme)
      REQUIRES(sMutex) = 0;
  virtual std::unique_ptr<Follower> follow(const std::string& stream, Receiver& receiver)
      REQUIRES(sMutex) = 0;
  // Finds out whether another process has replied, and calls `result` then.
  virtual void checkReply(std::uint64_t serial, std::function<void(bool replied)> result)
      REQUIRES(sMutex) = 0;
  // Whether everything that was posted through this connection has arrived at the followers of
  // this process. For tests.
  virtual bool isSettled() const REQUIRES(sMutex) = 0;
};

struct CarriageSettings {
  std::string server;
  std::chrono::milliseconds serverTimeout{3000};  // of connecting and of each exchange
  std::chrono::milliseconds postTimeout{5000};    // how long posting and closing wait
  std::size_t window = 1000;                      // of posts that are not acknowledged
  std::uint64_t logLimit = 64 << 20;              // bytes of changes that a server retains
};

// Refuses an invalid address. `onLink` is called when the connection is established or lost.
std::shared_ptr<Carriage> makeCarriage(const CarriageSettings& settings,
                                       std::function<void(bool established)> onLink)
    REQUIRES(sMutex);

}  // namespace standin

#endif  // OXLI_STANDIN_CARRIAGE_H
