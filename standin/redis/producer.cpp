// Joins publishers to streams of a server, and makes the entries that they send.
#include <algorithm>
#include <cstdio>
#include <random>

#include "standin/environment.h"
#include "standin/log.h"
#include "standin/redis/pauses.h"
#include "standin/redis/writer.h"

namespace standin::redis {
namespace {

// How long the server retains a noted reply after the reply timeout of its request.
constexpr std::chrono::minutes kReplySlack(1);

std::string randomHex() {
  std::random_device system;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%08x%08x", system(), system());
  return digits;
}

// A server accepts strings of at most 512 MiB, unless its settings say otherwise.
constexpr std::size_t kMaxPostBytes = std::size_t{256} << 20;

// Returns the beginning of the ids of all publishers of this process.
const std::string& processId() {
  static const std::string& id = *new std::string(randomHex() + '-');
  return id;
}

// Returns whether the server's scheme covers the publisher's: true if the publisher has none, else
// false if the server's scheme is invalid.
bool covers(const std::string& theirs, const std::shared_ptr<const Scheme>& own) {
  try {
    return !own || Scheme(theirs).covers(*own);
  } catch (const Refusal&) {
    return false;
  }
}

}  // namespace

Producer::Producer(std::shared_ptr<Writer> writer, std::string stream,
                   std::shared_ptr<const Scheme> scheme)
    : writer_(std::move(writer)),
      id_(processId() + randomHex()),
      stream_(std::move(stream)),
      keys_(keysOf(stream_)),
      scheme_(std::move(scheme)) {
}

void Producer::post(const Message& message, const PostOptions& options) {
  Writer::Entry entry;
  entry.producer = shared_from_this();
  entry.postKind = kMessage;
  entry.body = encode(message, options.replyWithin);
  if (message.record.head.type == OX_MSG_STREAM_DATA) {
    entry.postKind = message.own.description->key.empty() ? kUnkeyedRow : kRow;
    entry.key = rowKey(message);
  }
  require(entry.body.size() <= kMaxPostBytes, "a post to a server has at most 256 MiB");
  writer_->post(std::move(entry), options.acknowledged);
}

void Producer::clear(std::uint32_t table, std::int64_t olderThan, const PostOptions& options) {
  Writer::Entry entry;
  entry.producer = shared_from_this();
  entry.postKind = kClear;
  entry.key = std::to_string(olderThan);
  entry.body = std::to_string(table);
  writer_->post(std::move(entry), options.acknowledged);
}

void Producer::noteReply(std::uint64_t serial, std::chrono::milliseconds within) {
  const std::chrono::milliseconds until = within + kReplySlack;
  writer_->push({Writer::Entry::Kind::kReply, 0, shared_from_this(), serial, "",
                 std::to_string(until.count())});
}

void Producer::leave() {
  if (std::exchange(leaving_, true)) return;
  writer_->push({Writer::Entry::Kind::kLeave, 0, shared_from_this(), 0, "", ""});
}

void Producer::awaitLeft() {
  writer_->awaitLeft(*this);
}

Transport::Joined Writer::join(const std::string& stream,
                               const std::shared_ptr<const Scheme>& scheme) {
  const auto producer = std::make_shared<Producer>(shared_from_this(), stream, scheme);
  std::map<std::string, std::string> seen;
  JoinReply reply = askToJoin(producer, "try", 0);
  for (int attempts = 0; !reply.joined; ++attempts) {
    const char* mode = "anew";
    if (covers(reply.scheme, scheme)) {
      mode = "covered";
    } else if (!reply.publishers.empty()) {
      mode = "try";
      requireExpired(*producer, reply, attempts, seen);
    }
    reply = askToJoin(producer, mode, reply.life);
  }
  producers_.push_back(producer);
  return {reply.life, reply.scheme, producer};
}

// Refuses if a publisher with another layout is open: one of this process, one that the first
// attempt did not find, or one whose heartbeat counter has changed since then. Otherwise waits
// until the next attempt or, after kChecksUntilExpired attempts, removes these publishers from the
// stream.
void Writer::requireExpired(const Producer& producer, const JoinReply& found, int attempts,
                            std::map<std::string, std::string>& seen) {
  if (attempts == 0) seen = found.publishers;
  const auto isOpen = [&seen](const auto& publisher) {
    const auto before = seen.find(publisher.first);
    return before == seen.end() || before->second != publisher.second ||
           publisher.first.compare(0, processId().size(), processId()) == 0;
  };
  const auto& publishers = found.publishers;
  if (std::any_of(publishers.begin(), publishers.end(), isOpen)) {
    throw Refusal{OX_ERR_INVALIDARGUMENT,
                  "stream=" + producer.stream_ + " has open publishers with another layout"};
  }
  if (attempts < kChecksUntilExpired) {
    const auto isClosed = [this]() REQUIRES(sMutex) { return closed_; };
    done_.waitUntil(sMutex, Clock::now() + kCheckInterval, isClosed);
    return;
  }
  const auto expire = [keys = producer.keys_, found](const Scripts& scripts) {
    for (const auto& [id, heartbeats] : found.publishers) {
      scripts.call(Script::kLeave, keys, {std::to_string(found.life), id, heartbeats});
    }
  };
  ask(expire);
}

void Writer::ask(std::function<void(const Scripts&)> run) {
  const auto request = std::make_shared<Request>();
  request->run = std::move(run);
  requests_.push_back(request);
  work_.notifyAll();
  const auto isOver = [&]() REQUIRES(sMutex) { return closed_ || request->done; };
  done_.waitUntil(sMutex, Clock::now() + settings_.serverTimeout, isOver);
  if (request->done) return;
  request->abandoned = true;
  throw Refusal{
      kNoServer,
      address_.name + ": " + (failure_.empty() ? "the server does not answer in time" : failure_)};
}

Writer::JoinReply Writer::askToJoin(const std::shared_ptr<Producer>& producer, const char* mode,
                                    std::uint32_t life) {
  const auto reply = std::make_shared<JoinReply>();
  ask([=](const Scripts& scripts) {
    *reply = callJoin(scripts, *producer, mode, life, 0);
    producer->life_ = reply->life;
  });
  if (reply->joined) reached_[producer->keys_] = {reply->life, reply->end};
  return *reply;
}

Writer::JoinReply Writer::callJoin(const Scripts& scripts, const Producer& producer,
                                   const char* mode, std::uint32_t life,
                                   std::uint64_t acknowledged) {
  const std::string_view scheme =
      producer.scheme_ ? std::string_view(producer.scheme_->string()) : std::string_view();
  const Reply reply = scripts.call(Script::kJoin, producer.keys_,
                                   {producer.id_, scheme, std::to_string(newLifeNumber()), mode,
                                    std::to_string(life), std::to_string(acknowledged)});
  JoinReply read;
  read.joined = reply[0].integer() != 0;
  const std::int64_t number = reply[1].integer();
  if (number <= 0 || number > UINT32_MAX) throw LinkError{"the server has an invalid life number"};
  read.life = static_cast<std::uint32_t>(number);
  read.scheme = reply[2].string();
  read.lost = reply[4].integer();
  if (read.joined) {
    read.end = parseId(reply[3].string()).value_or(Id());
    return read;
  }
  for (std::size_t i = 0; i + 1 < reply[3].size(); i += 2) {
    read.publishers.emplace(reply[3][i].string(), reply[3][i + 1].string());
  }
  return read;
}

// Joins again with all publishers. This increments their heartbeat counters and, after an outage,
// adds publishers that the server has lost, and detects the loss of posts that the server had
// acknowledged.
void Writer::joinAgain(const Scripts& scripts) {
  struct Joining {
    std::shared_ptr<Producer> producer;
    bool leaving;
    std::uint64_t acknowledged;
  };
  std::vector<Joining> joinings;
  // Schemes are released with the mutex acquired.
  const auto release = [](auto* list) {
    const MutexLock lock(sMutex);
    list->clear();
  };
  const std::unique_ptr<decltype(joinings), decltype(release)> releasing(&joinings, release);
  {
    const MutexLock lock(sMutex);
    for (const auto& each : producers_) {
      joinings.push_back({each, each->leaving_, each->acknowledged_});
    }
  }
  for (const auto& [producer, leaving, acknowledged] : joinings) {
    JoinReply reply =
        callJoin(scripts, *producer, leaving ? "leaving" : "try", producer->life_, acknowledged);
    const std::int64_t lost = reply.lost;
    if (!reply.joined && covers(reply.scheme, producer->scheme_)) {
      reply = callJoin(scripts, *producer, "covered", reply.life, acknowledged);
    }
    producer->life_ = reply.life;
    const MutexLock lock(sMutex);
    if (lost > 0) {
      writeLog("error", "stream=" + producer->stream_ + ": the server has lost " +
                            std::to_string(lost) + " posts that it had acknowledged");
    }
    if (!reply.joined) refuse(*producer);
  }
}

void Writer::refuse(Producer& producer) {
  if (!std::exchange(producer.refused_, true)) {
    writeLog("error", "stream=" + producer.stream_ +
                          ": another publisher has made the stream anew; the posts of this "
                          "publisher are discarded");
  }
  eraseFrom(producers_, producer);
}

}  // namespace standin::redis
