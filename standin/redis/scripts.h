// Declares the scripts that a server runs atomically, and the keys of a stream that they use.
//
// All keys of a stream begin with "ox:{NAME}:", so that they are in one slot of a cluster. NAME is
// the name of the stream with %7B, %7D and %25 for {, } and %; it is a single % if the name is
// empty.
//
//   ox:{NAME}:meta         hash: `life`, the stream's life number; `scheme`
//   ox:{NAME}:LIFE:state   hash: `rev`, the revision of the latest row; `bytes` of the log since
//                          the latest mark
//   ox:{NAME}:LIFE:log     Redis stream: all changes, each as one field named by an EntryKind
//   ox:{NAME}:LIFE:marks   list: ids of the log at which it can be trimmed
//   ox:{NAME}:LIFE:rows    hash: the rows by their keys
//   ox:{NAME}:LIFE:index   sorted set: the keys of the rows by revision
//   ox:{NAME}:LIFE:cleared hash: for each table of which rows were removed, "OLDEST:AT", as in
//                          ClearedTable
//   ox:{NAME}:LIFE:pubs    hash: for each open publisher its heartbeat counter, the number of times
//                          that it has run kJoin; it runs kJoin every second
//   ox:{NAME}:LIFE:seq:PUBLISHER  number of the latest post of a publisher; expires a day after the
//                          latest post or join
//   ox:answered:SERIAL     a request that was replied to; expires
//
// The id of a row in the log is REV-0. The id of any other change is REV-N, with the REV of the
// latest row and the next N. A gap between ids therefore shows that changes were trimmed: a trimmed
// log never begins with a row that follows another change. After an id that another client has
// written, the next change of any kind has the id REV-0, with the revision after that id.
#ifndef OXLI_STANDIN_REDIS_SCRIPTS_H
#define OXLI_STANDIN_REDIS_SCRIPTS_H

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "standin/redis/link.h"

namespace standin::redis {

// Names of fields in the log, and the kinds of posts.
enum EntryKind : char {
  kRow = 'r',
  kUnkeyedRow = 'k',  // of posts only: the script appends the revision to the row's key
  kMessage = 'm',
  kClear = 'c',   // in the log "TABLE:OLDER_THAN"
  kScheme = 's',  // the stream's first scheme
  kEnd = 'e',     // the last publisher has left
  kAnew = 'a',    // a publisher has made the stream anew, under another life number
};

// Each script gets the beginning of the stream's keys as its key. Its arguments, what it does, and
// its result:
enum class Script {
  // PUBLISHER SCHEME NEW_LIFE MODE LIFE ACKNOWLEDGED: adds the publisher to the open ones, or
  // increments its heartbeat counter. Makes the stream with NEW_LIFE if it does not exist, and
  // stores SCHEME if the stream has no scheme. If SCHEME is not empty and the stream has another
  // scheme, adds or increments only as MODE permits:
  //   "try"      never.
  //   "covered"  if the life number is still LIFE: the caller has checked that the stream's scheme
  //              covers SCHEME.
  //   "anew"     if the life number is still LIFE and no publisher is open: replaces the stream by
  //              one with SCHEME and NEW_LIFE.
  //   "leaving"  like "covered". With any scheme, does not add a publisher of LIFE that has left.
  // If the stream of LIFE lacks posts up to the number ACKNOWLEDGED, they are lost, and the stream
  // continues with the life number NEW_LIFE. Returns {1, life, scheme, id, lost}, or
  // {0, life, scheme, {publisher, heartbeats, ...}, lost} if the publisher was not added; `lost` is
  // the number of lost posts.
  kJoin,
  // LIFE PUBLISHER HEARTBEATS: removes the publisher from the open ones. If HEARTBEATS is not
  // empty, does so only if the publisher's heartbeat counter still has this value. Returns the id
  // of the log's end.
  kLeave,
  // LIFE PUBLISHER FIRST LIMIT, and KIND KEY BODY of each post: writes the posts that have not been
  // written before. FIRST is the number of the first post given, LIMIT is the setting `log_limit`.
  // For kClear, KEY is OLDER_THAN and BODY is TABLE. Returns the id of the log's end, the string
  // "LIFE" if the stream has another life number, or "GAP" if earlier posts are missing.
  kPost,
  // NEW_LIFE: makes the stream if it does not exist. Returns {life, scheme, rev, id, {table,
  // "OLDEST:AT", ...}, {publisher, heartbeats, ...}}.
  kReadState,
};
constexpr std::size_t kScripts = 4;

// Loads the scripts into the server of a link, and calls them. The link must outlive the object.
class Scripts {
 public:
  explicit Scripts(Link& link);
  // Appends a call of the script to the commands of the link; receive the reply from the link.
  void append(Script script, const std::string& keys,
              const std::vector<std::string_view>& arguments) const;
  // Calls the script and returns its reply. Throws a LinkError if the reply is an error.
  Reply call(Script script, const std::string& keys,
             const std::vector<std::string_view>& arguments) const;

 private:
  std::vector<std::string_view> command(Script script, const std::string& keys,
                                        const std::vector<std::string_view>& arguments) const;

  Link& link_;
  std::array<std::string, kScripts> hashes_;
};

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_SCRIPTS_H
