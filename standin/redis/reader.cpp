#include "standin/redis/reader.h"

#include "standin/environment.h"
#include "standin/log.h"
#include "standin/redis/pauses.h"

namespace standin::redis {
namespace {

// How long the server waits for a change. Requested rows are read after that time at the latest.
constexpr std::chrono::milliseconds kBlock(50);
// The interval at which a full queue is checked, besides the notification that it has room again.
constexpr std::chrono::milliseconds kRoomInterval(100);

// Readers that are not stopped. Guarded by sMutex.
std::vector<const Reader*>& readers() {
  static auto& list = *new std::vector<const Reader*>;
  return list;
}

}  // namespace

Reader::Reader(Address address, std::chrono::milliseconds timeout, std::string stream,
               Receiver& receiver)
    : address_(std::move(address)),
      timeout_(timeout),
      stream_(std::move(stream)),
      keys_(keysOf(stream_)),
      receiver_(&receiver) {
}

void Reader::start() {
  worker_ = Worker::start([self = shared_from_this()](Worker& worker) { self->run(worker); });
  readers().push_back(this);
}

void Reader::stop() {
  auto& list = readers();
  list.erase(std::remove(list.begin(), list.end(), this), list.end());
  receiver_ = nullptr;
  worker_->stop();
  changed_.notifyAll();
  environment().room.notifyAll();
}

void Reader::awaitJoined() {
  const auto isDecided = [this]() REQUIRES(sMutex) { return joined_ || !failure_.empty(); };
  changed_.waitUntil(sMutex, Clock::now() + 2 * timeout_, isDecided);
  if (joined_) return;
  throw Refusal{kNoServer, address_.name + ": " +
                               (failure_.empty() ? "the server is not reached in time" : failure_)};
}

void Reader::proceed() {
  proceeding_ = true;
  changed_.notifyAll();
}

void Reader::request(std::int64_t from) {
  wanted_ = std::min(wanted_, from);
}

bool Reader::haveRead(const std::string& address, const std::string& keys, std::uint32_t life,
                      const Id& end) {
  const auto hasRead = [&](const Reader* reader) REQUIRES(sMutex) {
    if (reader->address_.name != address || reader->keys_ != keys) return true;
    const bool complete = !reader->loading_ && reader->wanted_ == INT64_MAX;
    return complete && reader->life_ == life && !(reader->position_ < end);
  };
  return std::all_of(readers().begin(), readers().end(), hasRead);
}

void Reader::run(Worker& worker) {
  Pauses pauses;
  while (!worker.isStopped() && !ended_) {
    try {
      Link link(address_, timeout_, worker);
      const Scripts scripts(link);
      pauses.onEstablished();
      serve(scripts, link, worker);
    } catch (const std::exception& exception) {
      onFailure(exception.what(), worker);
    }
    if (!ended_) worker.pause(pauses.next());
  }
  const MutexLock lock(sMutex);
  worker.stop();
  if (failure_.empty()) failure_ = "the listener was closed";
  changed_.notifyAll();
  scheme_ = nullptr;  // schemes are released with the mutex acquired
}

void Reader::serve(const Scripts& scripts, Link& link, const Worker& worker) {
  heartbeats_.clear();
  // Loading starts again, because the reply to a requested page may be lost with the connection.
  pageKeys_.reset();
  after_ = std::to_string(low_);
  readState(scripts);
  awaitProceed(worker);
  while (!worker.isStopped() && !ended_) {
    startLoading();
    if (loading_ && !target_) readPages(scripts, link);
    endLoading();
    if (!readLog(link, worker)) {
      const StreamState found = readState(scripts);
      if (found.life == life_) {
        lose();
        join(found);
      } else {
        end("the stream was made anew");
      }
    }
    if (Clock::now() >= nextCheck_) removeExpired(scripts, readState(scripts));
  }
}

Reader::StreamState Reader::callReadState(const Scripts& scripts) const {
  const Reply reply = scripts.call(Script::kReadState, keys_, {std::to_string(newLifeNumber())});
  StreamState found;
  const std::int64_t life = reply[0].integer();
  if (life <= 0 || life > UINT32_MAX) throw LinkError{"the server has an invalid life number"};
  found.life = static_cast<std::uint32_t>(life);
  found.scheme = reply[1].string();
  found.rev = reply[2].integer();
  const std::optional<Id> end = parseId(reply[3].string());
  if (!end || found.rev < 0) throw LinkError{"the server has an invalid revision"};
  found.end = *end;
  for (std::size_t i = 0; i + 1 < reply[4].size(); i += 2) {
    const auto table = toNumber<std::uint32_t>(std::string(reply[4][i].string()));
    const auto cleared = parsePair(reply[4][i + 1].string());
    if (table && cleared) found.cleared.push_back({*table, cleared->first, cleared->second});
  }
  for (std::size_t i = 0; i + 1 < reply[5].size(); i += 2) {
    found.publishers.emplace(reply[5][i].string(), reply[5][i + 1].string());
  }
  return found;
}

Reader::StreamState Reader::readState(const Scripts& scripts) {
  StreamState found = callReadState(scripts);
  nextCheck_ = Clock::now() + kCheckInterval;
  if (life_ == 0) {
    join(found);
  } else if (found.life != life_) {
    replaced_ = true;  // the rest of the log is read before end() is called
  } else if (found.end < position_) {
    end("the server has lost changes that it had acknowledged");
  }
  return found;
}

void Reader::join(const StreamState& found) {
  if (ended_ || (life_ != 0 && found.life != life_)) return;
  const MutexLock lock(sMutex);
  if (!receiver_) return;
  life_ = found.life;
  position_ = found.end;
  complete_ = found.rev;
  loading_ = false;
  target_.reset();
  wanted_ = INT64_MAX;
  receiver_->onJoined(found.life, found.rev);
  for (const ClearedTable& cleared : found.cleared) receiver_->onClearedBefore(cleared);
  if (!found.scheme.empty()) scheme_ = receiver_->onScheme(found.scheme);
  joined_ = true;
  failure_.clear();
  changed_.notifyAll();
}

void Reader::lose() {
  const MutexLock lock(sMutex);
  if (receiver_ && !ended_) receiver_->onLost();
}

void Reader::awaitProceed(const Worker& worker) {
  const MutexLock lock(sMutex);
  const auto mayProceed = [&]() REQUIRES(sMutex) { return proceeding_ || worker.isStopped(); };
  changed_.waitUntil(sMutex, Clock::time_point::max(), mayProceed);
  failure_.clear();
}

void Reader::removeExpired(const Scripts& scripts, const StreamState& found) {
  std::map<std::string, std::pair<std::string, int>> heartbeats;
  for (const auto& [publisher, heartbeat] : found.publishers) {
    const auto before = heartbeats_.find(publisher);
    const bool same = before != heartbeats_.end() && before->second.first == heartbeat;
    const int checks = same ? before->second.second + 1 : 1;
    heartbeats.emplace(publisher, std::make_pair(heartbeat, checks));
    if (checks <= kChecksUntilExpired || replaced_) continue;
    scripts.call(Script::kLeave, keys_, {std::to_string(life_), publisher, heartbeat});
  }
  heartbeats_ = std::move(heartbeats);
}

// Returns false if changes were trimmed before they were read.
bool Reader::readLog(Link& link, const Worker& worker) {
  const std::string count = std::to_string(logCount_), block = std::to_string(kBlock.count());
  const std::string log = keys_ + std::to_string(life_) + ":log", after = position_.string();
  std::vector<std::string_view> command = {"XREAD", "COUNT", count};
  const bool waits = !(loading_ && !target_) && !replaced_;
  if (waits) command.insert(command.end(), {"BLOCK", block});
  command.insert(command.end(), {"STREAMS", log, after});
  const Reply reply = link.call(command, kBlock);
  if (reply.isNil()) {
    if (replaced_) end("the stream was made anew");
    return true;
  }
  const Reply entries = reply[0][1];
  Arrivals arrivals;
  Id before = position_;
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < entries.size() && !ended_; ++i) {
    Arrival arrival = arrivalOf(entries[i]);
    const bool missing = arrival.kind != 0 && !arrival.id.follows(before);
    if (missing) {
      pass(arrivals, worker);
      return worker.isStopped() || ended_;
    }
    before = arrival.id;
    if (entries[i][1].size() == 2) bytes += entries[i][1][1].string().size();
    arrivals.push_back(std::move(arrival));
    // What follows may need the scheme.
    if (arrivals.back().kind == kScheme) pass(arrivals, worker);
  }
  adapt(logCount_, entries.size(), bytes);
  pass(arrivals, worker);
  return true;
}

Reader::Arrival Reader::arrivalOf(const Reply& entry) const {
  const std::optional<Id> id = parseId(entry[0].string());
  if (!id) throw LinkError{"the server has an invalid id"};
  Arrival arrival;
  arrival.id = *id;
  const std::string name = "entry " + id->string();
  const Reply fields = entry[1];
  const std::string_view field = fields.size() == 2 ? fields[0].string() : std::string_view();
  const char kind = field.size() == 1 ? field.front() : '\0';
  const std::string_view body = kind == '\0' ? std::string_view() : fields[1].string();
  if (kind == kRow && id->number == 0 && id->rev > 0) {
    arrival.message = decodeOrSkip(body, id->rev, name);
  } else if (kind == kMessage) {
    arrival.message = decodeOrSkip(body, 0, name);
  } else if (kind == kClear) {
    const auto cleared = parsePair(body);
    if (!cleared || cleared->first < 0 || cleared->first > UINT32_MAX) {
      skip(name, "its body is invalid");
      return arrival;
    }
    arrival.table = static_cast<std::uint32_t>(cleared->first);
    arrival.olderThan = cleared->second;
  } else if (kind == kScheme) {
    arrival.scheme = body;
  } else if (kind != kEnd && kind != kAnew) {
    skip(name, "it is of an unknown kind");
    return arrival;
  }
  arrival.kind = kind;
  return arrival;
}

MessagePtr Reader::decodeOrSkip(std::string_view body, std::int64_t rev,
                                const std::string& name) const {
  try {
    return decode(body, scheme_, rev);
  } catch (const Refusal& refusal) {
    skip(name, refusal.reason);
    return nullptr;
  }
}

void Reader::skip(const std::string& name, const std::string& reason) const {
  const MutexLock lock(sMutex);
  if (!isLogging()) return;
  writeLog("error", "stream=" + stream_ + ": the server's " + oneLine(name) +
                        " is skipped: " + oneLine(reason));
}

void Reader::pass(Arrivals& arrivals, const Worker& worker) {
  const MutexLock lock(sMutex);
  for (const Arrival& arrival : arrivals) {
    while (receiver_ && !worker.isStopped() && !receiver_->hasRoom()) {
      environment().room.waitUntil(sMutex, Clock::now() + kRoomInterval);
    }
    if (!receiver_ || worker.isStopped()) break;
    passOne(arrival);
    position_ = arrival.id;
  }
  arrivals.clear();
}

void Reader::passOne(const Arrival& arrival) {
  if (arrival.kind == kScheme) {
    scheme_ = receiver_->onScheme(arrival.scheme);
  } else if (arrival.kind == kClear) {
    receiver_->onCleared(arrival.table, arrival.olderThan);
  } else if (arrival.kind == kEnd) {
    receiver_->onEnd(false);
  } else if (arrival.kind == kAnew) {
    ended_ = true;
    receiver_->onEnd(true);
  } else if (arrival.message && arrival.kind == kRow) {
    receiver_->onRow(arrival.message);
  } else if (arrival.message) {
    receiver_->onMessage(arrival.message);
  }
}

void Reader::end(const char* reason) {
  const MutexLock lock(sMutex);
  writeLog("error", "stream=" + stream_ + ": its listeners are closed: " + reason);
  ended_ = true;
  if (receiver_) receiver_->onEnd(true);
}

void Reader::onFailure(const std::string& reason, const Worker& worker) {
  if (worker.isStopped()) return;
  const MutexLock lock(sMutex);
  const bool isNew = failure_ != reason;
  try {
    failure_ = reason;
    if (isNew) {
      writeLog("error", "stream=" + stream_ + ": there is no connection to " + address_.name +
                            ": " + oneLine(reason));
    }
  } catch (const std::bad_alloc&) {
    failure_ = "no memory";  // short enough to be assigned without an allocation
  }
  changed_.notifyAll();
}

}  // namespace standin::redis
