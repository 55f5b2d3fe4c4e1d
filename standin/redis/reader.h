// Reads the changes and the retained rows of one stream of a server.
#ifndef OXLI_STANDIN_REDIS_READER_H
#define OXLI_STANDIN_REDIS_READER_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "standin/redis/scripts.h"
#include "standin/redis/wire.h"
#include "standin/transport.h"
#include "standin/worker.h"

namespace standin::redis {

// Reads the log of a stream, on a thread and a connection of its own. Requested rows are read in
// groups of pages, alternating with the log. A row may change while the pages are read; therefore
// the rows are complete when the log has been read up to the end that it had after the last page.
class Reader : public std::enable_shared_from_this<Reader> {
 public:
  Reader(Address address, std::chrono::milliseconds timeout, std::string stream,
         Receiver& receiver);
  void start() REQUIRES(sMutex);
  // Stops reading. The receiver is not called afterwards.
  void stop() REQUIRES(sMutex);

  void awaitJoined() REQUIRES(sMutex);
  void proceed() REQUIRES(sMutex);
  void request(std::int64_t from) REQUIRES(sMutex);

  // Returns whether all readers of the stream in this process have read its log up to `end`, and
  // all rows that were requested.
  static bool haveRead(const std::string& address, const std::string& keys, std::uint32_t life,
                       const Id& end) REQUIRES(sMutex);

 private:
  // A change that was read from the log.
  struct Arrival {
    Id id;
    char kind = 0;  // an EntryKind; 0 for an entry that is skipped
    MessagePtr message;
    std::uint32_t table = 0;
    std::int64_t olderThan = 0;
    std::string scheme;
  };
  using Arrivals = std::vector<Arrival>;
  struct Page {
    Reply keys;  // the keys and revisions of the rows
    Reply bodies;
  };
  // The state of the stream, as Script::kReadState returns it.
  struct StreamState {
    std::uint32_t life = 0;
    std::string scheme;
    std::int64_t rev = 0;
    Id end;  // of the log
    std::vector<ClearedTable> cleared;
    std::map<std::string, std::string> publishers;  // heartbeat counters of the open ones, by id
  };

  void run(Worker& worker) EXCLUDES(sMutex);
  void serve(const Scripts& scripts, Link& link, const Worker& worker) EXCLUDES(sMutex);
  StreamState callReadState(const Scripts& scripts) const;
  StreamState readState(const Scripts& scripts) EXCLUDES(sMutex);
  void join(const StreamState& found) EXCLUDES(sMutex);
  void lose() EXCLUDES(sMutex);
  void awaitProceed(const Worker& worker) EXCLUDES(sMutex);
  void removeExpired(const Scripts& scripts, const StreamState& found);
  // Adapts `count`, the number of items that are read at once, to the bytes of those that were
  // read.
  static void adapt(std::int64_t& count, std::size_t read, std::size_t bytes);
  void startLoading() EXCLUDES(sMutex);
  void requestPageKeys(Link& link);
  void requestRows(Link& link, const Reply& pageKeys, bool last);
  void readPages(const Scripts& scripts, Link& link) EXCLUDES(sMutex);
  void passPage(const Page& page) EXCLUDES(sMutex);
  void endLoading() EXCLUDES(sMutex);
  bool readLog(Link& link, const Worker& worker) EXCLUDES(sMutex);
  Arrival arrivalOf(const Reply& entry) const EXCLUDES(sMutex);
  MessagePtr decodeOrSkip(std::string_view body, std::int64_t rev, const std::string& name) const
      EXCLUDES(sMutex);
  void skip(const std::string& name, const std::string& reason) const EXCLUDES(sMutex);
  void pass(Arrivals& arrivals, const Worker& worker) EXCLUDES(sMutex);
  void passOne(const Arrival& arrival) REQUIRES(sMutex);
  void end(const char* reason) EXCLUDES(sMutex);
  void onFailure(const std::string& reason, const Worker& worker) EXCLUDES(sMutex);

  const Address address_;
  const std::chrono::milliseconds timeout_;
  const std::string stream_, keys_;
  Receiver* receiver_ GUARDED_BY(sMutex);
  std::shared_ptr<Worker> worker_ GUARDED_BY(sMutex);
  Condition changed_;
  bool joined_ GUARDED_BY(sMutex) = false;
  bool proceeding_ GUARDED_BY(sMutex) = false;
  std::string failure_ GUARDED_BY(sMutex);
  std::int64_t wanted_ GUARDED_BY(sMutex) = INT64_MAX;  // rows after this revision are requested

  // Written by the reader's thread with sMutex acquired. Rows with revisions higher than
  // `complete_` have been read. While `loading_` is true, those from `low_` + 1 to `complete_` are
  // being read.
  std::uint32_t life_ = 0;
  Id position_;  // of the change that was passed last
  std::int64_t complete_ = 0;
  bool loading_ = false;

  // Used by the reader's thread only.
  std::shared_ptr<const Scheme> scheme_;
  std::int64_t low_ = 0;
  std::string after_;              // rows up to that revision have been requested
  std::optional<Reply> pageKeys_;  // the keys and revisions of the rows that are read next
  std::int64_t requested_ = 0;     // the number of rows requested for that page
  std::optional<Id> target_;       // the end of the log after the last page was read
  std::int64_t logCount_ = 16;     // number of entries that are read at once
  std::int64_t pageCount_ = 16;    // number of rows in a page
  bool replaced_ = false;          // the stream has another life number now
  bool ended_ = false;
  // For the id of each open publisher: its heartbeat counter, and the number of consecutive checks
  // that have found this value.
  std::map<std::string, std::pair<std::string, int>> heartbeats_;
  Clock::time_point nextCheck_;
};

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_READER_H
