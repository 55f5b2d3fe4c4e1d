// Sends the posts and requests of a connection to its server.
#ifndef OXLI_STANDIN_REDIS_WRITER_H
#define OXLI_STANDIN_REDIS_WRITER_H

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "standin/redis/scripts.h"
#include "standin/redis/wire.h"
#include "standin/transport.h"
#include "standin/worker.h"

namespace standin::redis {

class Writer;

// An open publisher on a server.
class Producer final : public Sender, public std::enable_shared_from_this<Producer> {
 public:
  Producer(std::shared_ptr<Writer> writer, std::string stream,
           std::shared_ptr<const Scheme> scheme);

  void post(const Message& message, const PostOptions& options) override REQUIRES(sMutex);
  void clear(std::uint32_t table, std::int64_t olderThan, const PostOptions& options) override
      REQUIRES(sMutex);
  void noteReply(std::uint64_t serial, std::chrono::milliseconds within) override REQUIRES(sMutex);
  void leave() override REQUIRES(sMutex);
  void awaitLeft() override REQUIRES(sMutex);

 private:
  friend class Writer;

  const std::shared_ptr<Writer> writer_;
  const std::string id_;  // unique among the publishers of all processes
  const std::string stream_, keys_;
  const std::shared_ptr<const Scheme> scheme_;  // may be null
  std::uint64_t next_ GUARDED_BY(sMutex) = 1;   // number of the next post
  std::uint64_t acknowledged_ GUARDED_BY(sMutex) = 0;
  bool leaving_ GUARDED_BY(sMutex) = false;
  bool left_ GUARDED_BY(sMutex) = false;
  bool refused_ GUARDED_BY(sMutex) = false;  // another publisher has made the stream anew
  std::uint32_t life_ = 0;                   // for the writer's thread
};

// Sends the posts of all publishers of a connection, on a thread of its own. Posts stay in the
// window until the server has acknowledged them. After an outage the publishers join again and the
// window is sent again; the server skips the posts that it has written.
class Writer final : public Transport, public std::enable_shared_from_this<Writer> {
 public:
  Writer(const TransportSettings& settings, Address address, std::function<void(bool)> onLink);
  void start() REQUIRES(sMutex);

  const std::string& address() const override { return address_.name; }
  void open() override REQUIRES(sMutex);
  void startClosing() override REQUIRES(sMutex);
  bool close() override REQUIRES(sMutex);
  Joined join(const std::string& stream, const std::shared_ptr<const Scheme>& scheme) override
      REQUIRES(sMutex);
  std::unique_ptr<Follower> follow(const std::string& stream, Receiver& receiver) override
      REQUIRES(sMutex);
  void checkReply(std::uint64_t serial, std::function<void(bool)> result) override REQUIRES(sMutex);
  bool isSettled() const override REQUIRES(sMutex);

 private:
  friend class Producer;

  // A command of the window: it is sent, and after an outage sent again, until it is acknowledged.
  struct Entry {
    enum class Kind { kPost, kLeave, kReply };

    Kind kind = Kind::kPost;
    char postKind = 0;
    std::shared_ptr<Producer> producer;
    std::uint64_t number = 0;  // number of a post, or serial number of a request
    std::string key, body;
  };
  struct Request {
    std::function<void(const Scripts&)> run;  // on the writer's thread; repeated after an outage
    bool done = false;
    bool abandoned = false;
  };
  struct Check {
    std::uint64_t serial;
    std::function<void(bool)> result;
  };
  struct JoinReply {
    bool joined = false;
    std::uint32_t life = 0;
    std::string scheme;
    Id end;                                         // of the log
    std::int64_t lost = 0;                          // acknowledged posts that the server has lost
    std::map<std::string, std::string> publishers;  // heartbeat counters of the open ones, by id
  };
  // The entries at the front of the window that are sent together. The pointers stay valid while
  // entries are added to the window.
  using Batch = std::vector<const Entry*>;

  void push(Entry entry) REQUIRES(sMutex);
  void post(Entry entry, bool acknowledged) REQUIRES(sMutex);
  void awaitLeft(const Producer& producer) REQUIRES(sMutex);
  // Runs a function on the writer's thread and waits until it has returned. Refuses with kNoServer
  // if that takes longer than the server timeout, or if the connection is closed meanwhile.
  void ask(std::function<void(const Scripts&)> run) REQUIRES(sMutex);
  JoinReply askToJoin(const std::shared_ptr<Producer>& producer, const char* mode,
                      std::uint32_t life) REQUIRES(sMutex);
  void requireExpired(const Producer& producer, const JoinReply& found, int attempts,
                      std::map<std::string, std::string>& seen) REQUIRES(sMutex);

  // Called on the writer's thread.
  void run(Worker& worker) EXCLUDES(sMutex);
  void serve(const Scripts& scripts, Link& link, const Worker& worker) EXCLUDES(sMutex);
  Batch nextBatch() REQUIRES(sMutex);
  void send(const Scripts& scripts, Link& link, const Batch& batch) EXCLUDES(sMutex);
  void acknowledge(std::size_t count, const Reply& reply) EXCLUDES(sMutex);
  void popFront() REQUIRES(sMutex);
  void check(Link& link, std::deque<Check> checks) EXCLUDES(sMutex);
  void joinAgain(const Scripts& scripts) EXCLUDES(sMutex);
  void endChecks() REQUIRES(sMutex);
  void refuse(Producer& producer) REQUIRES(sMutex);
  void onEstablished() EXCLUDES(sMutex);
  void onFailure(const std::string& reason, const Worker& worker) EXCLUDES(sMutex);
  static JoinReply callJoin(const Scripts& scripts, const Producer& producer, const char* mode,
                            std::uint32_t life, std::uint64_t acknowledged);

  const TransportSettings settings_;
  const Address address_;
  const std::string logLimit_;
  const std::function<void(bool)> onLink_;
  std::shared_ptr<Worker> worker_ GUARDED_BY(sMutex);
  Condition work_;  // notified when there is work for the writer's thread
  // Notified when an entry or request is done, or when established_, failure_ or closed_ is set.
  Condition done_;
  bool established_ GUARDED_BY(sMutex) = false;
  bool closed_ GUARDED_BY(sMutex) = false;
  std::string failure_ GUARDED_BY(sMutex);    // why the connection is not established
  bool refusing_ GUARDED_BY(sMutex) = false;  // the server has refused the window's first post
  std::optional<Clock::time_point> closeBy_ GUARDED_BY(sMutex);
  std::deque<Entry> window_ GUARDED_BY(sMutex);
  std::size_t bytes_ GUARDED_BY(sMutex) = 0;  // of the window
  std::deque<std::shared_ptr<Request>> requests_ GUARDED_BY(sMutex);
  std::deque<Check> checks_ GUARDED_BY(sMutex);
  std::vector<std::shared_ptr<Producer>> producers_ GUARDED_BY(sMutex);  // that have joined
  // For the keys of each stream: its life number, and the end of its log after the latest entry
  // that was acknowledged.
  std::map<std::string, std::pair<std::uint32_t, Id>> reached_ GUARDED_BY(sMutex);
};

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_WRITER_H
