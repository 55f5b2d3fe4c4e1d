#include "standin/redis/writer.h"

#include "standin/environment.h"
#include "standin/log.h"
#include "standin/redis/pauses.h"

namespace standin::redis {
namespace {

constexpr std::size_t kMaxBatch = 500;
constexpr std::size_t kMaxBatchBytes = std::size_t{4} << 20;
constexpr std::size_t kMaxWindowBytes = std::size_t{64} << 20;

std::string answeredKey(std::uint64_t serial) {
  return "ox:answered:" + std::to_string(serial);
}

}  // namespace

Writer::Writer(const TransportSettings& settings, Address address, std::function<void(bool)> onLink)
    : settings_(settings),
      address_(std::move(address)),
      logLimit_(std::to_string(settings.logLimit)),
      onLink_(std::move(onLink)) {
}

void Writer::start() {
  worker_ = Worker::start([self = shared_from_this()](Worker& worker) { self->run(worker); });
}

void Writer::open() {
  const auto isDecided = [this]() REQUIRES(sMutex) {
    return established_ || closed_ || !failure_.empty();
  };
  const bool decided =
      done_.waitUntil(sMutex, Clock::now() + 2 * settings_.serverTimeout, isDecided);
  if (established_ || closed_) return;
  throw Refusal{kNoServer,
                address_.name + ": " + (decided ? failure_ : "the server is not reached in time")};
}

void Writer::startClosing() {
  closeBy_ = Clock::now() + settings_.postTimeout;
}

bool Writer::close() {
  if (!closeBy_) startClosing();
  const auto isSent = [this]() REQUIRES(sMutex) { return window_.empty(); };
  done_.waitUntil(sMutex, *closeBy_, isSent);
  const auto isPost = [](const Entry& entry) { return entry.kind == Entry::Kind::kPost; };
  const auto discarded = std::count_if(window_.begin(), window_.end(), isPost);
  if (discarded > 0) {
    writeLog("error", address_.name + ": " + std::to_string(discarded) +
                          " posts are discarded, because the server has not acknowledged them");
  }
  closed_ = true;
  worker_->stop();
  work_.notifyAll();
  done_.notifyAll();
  return discarded == 0;
}

void Writer::checkReply(std::uint64_t serial, std::function<void(bool)> result) {
  if (!established_ || closed_) return result(false);
  checks_.push_back({serial, std::move(result)});
  work_.notifyAll();
}

void Writer::push(Entry entry) {
  bytes_ += entry.key.size() + entry.body.size();
  window_.push_back(std::move(entry));
  // The thread waits only while the window is empty.
  if (window_.size() == 1) work_.notifyAll();
}

void Writer::post(Entry entry, bool acknowledged) {
  const std::shared_ptr<Producer> producer = entry.producer;
  const auto until = Clock::now() + settings_.postTimeout;
  const auto isOver = [&]() REQUIRES(sMutex) {
    return closed_ || producer->refused_ || producer->leaving_;
  };
  const auto hasRoom = [&]() REQUIRES(sMutex) {
    const std::size_t size = entry.key.size() + entry.body.size();
    return window_.empty() ||
           (window_.size() < settings_.window && bytes_ + size <= kMaxWindowBytes);
  };
  const auto canPost = [&]() REQUIRES(sMutex) { return isOver() || hasRoom(); };
  if (!canPost() && !done_.waitUntil(sMutex, until, canPost)) {
    throw Refusal{kWindowFull, address_.name + ": the window is full: the server has not " +
                                   "acknowledged its " + std::to_string(window_.size()) +
                                   " entries"};
  }
  require(!producer->refused_, "another publisher has made the stream anew", OX_ERR_INVALIDSTATE);
  require(!isOver(), "the publisher was closed while it was posting", OX_ERR_INVALIDSTATE);
  const std::uint64_t number = entry.number = producer->next_++;
  push(std::move(entry));
  if (!acknowledged) return;
  const auto isDecided = [&]() REQUIRES(sMutex) {
    return closed_ || producer->refused_ || producer->acknowledged_ >= number;
  };
  done_.waitUntil(sMutex, until, isDecided);
  require(producer->acknowledged_ >= number, "the server has not acknowledged the post in time",
          kNotAcknowledged);
}

void Writer::awaitLeft(const Producer& producer) {
  const auto isOver = [&]() REQUIRES(sMutex) { return closed_ || producer.left_; };
  done_.waitUntil(sMutex, Clock::now() + settings_.postTimeout, isOver);
  const std::uint64_t missing = producer.next_ - 1 - producer.acknowledged_;
  if (missing == 0) return;
  throw Refusal{kNotAcknowledged,
                "stream=" + producer.stream_ + ": the server has not acknowledged " +
                    std::to_string(missing) + " posts, which are " +
                    (producer.left_ ? "discarded" : "sent until the connection is closed")};
}

void Writer::run(Worker& worker) {
  Pauses pauses;
  while (!worker.isStopped()) {
    try {
      Link link(address_, settings_.serverTimeout, worker);
      const Scripts scripts(link);
      joinAgain(scripts);
      onEstablished();
      pauses.onEstablished();
      serve(scripts, link, worker);
    } catch (const std::exception& exception) {
      onFailure(exception.what(), worker);
    }
    worker.pause(pauses.next());
  }
  const MutexLock lock(sMutex);
  // Schemes are released with the mutex acquired.
  producers_.clear();
  window_.clear();
  requests_.clear();
  endChecks();
}

void Writer::serve(const Scripts& scripts, Link& link, const Worker& worker) {
  auto nextHeartbeat = Clock::now() + kHeartbeatInterval;
  while (!worker.isStopped()) {
    Batch batch;
    std::deque<Check> checks;
    std::shared_ptr<Request> request;
    bool abandoned = false;
    {
      const MutexLock lock(sMutex);
      const auto hasWork = [&]() REQUIRES(sMutex) {
        return closed_ || !window_.empty() || !requests_.empty() || !checks_.empty();
      };
      work_.waitUntil(sMutex, nextHeartbeat, hasWork);
      batch = nextBatch();
      checks.swap(checks_);
      if (!requests_.empty()) request = requests_.front();
      abandoned = request && request->abandoned;
    }
    if (Clock::now() >= nextHeartbeat) {
      link.call({"PING"});
      joinAgain(scripts);
      nextHeartbeat = Clock::now() + kHeartbeatInterval;
    }
    if (!batch.empty()) send(scripts, link, batch);
    if (!checks.empty()) check(link, std::move(checks));
    if (!request) continue;
    if (!abandoned) request->run(scripts);
    const MutexLock lock(sMutex);
    request->done = true;
    requests_.pop_front();
    request = nullptr;  // its function may own a scheme
    done_.notifyAll();
  }
}

Writer::Batch Writer::nextBatch() {
  while (!window_.empty() && window_.front().producer->refused_) {
    popFront();
    done_.notifyAll();
  }
  Batch batch;
  std::size_t bytes = 0;
  // Half the window, so that the next posts are made while these are written.
  const std::size_t most = std::min(kMaxBatch, settings_.window / 2 + 1);
  for (const Entry& entry : window_) {
    bytes += entry.body.size();
    const bool full = batch.size() == most || (bytes > kMaxBatchBytes && !batch.empty());
    if (full || entry.producer->refused_) break;
    batch.push_back(&entry);
  }
  return batch;
}

void Writer::send(const Scripts& scripts, Link& link, const Batch& batch) {
  std::vector<std::size_t> counts;  // of the entries in each command
  for (std::size_t at = 0; at < batch.size(); at += counts.back()) {
    const Entry& first = *batch[at];
    Producer& producer = *first.producer;
    const std::string life = std::to_string(producer.life_);
    counts.push_back(1);
    if (first.kind == Entry::Kind::kReply) {
      link.append({"SET", answeredKey(first.number), "1", "PX", first.body});
    } else if (first.kind == Entry::Kind::kLeave) {
      scripts.append(Script::kLeave, producer.keys_, {life, producer.id_, ""});
    } else {
      const std::string number = std::to_string(first.number);
      std::vector<std::string_view> arguments = {life, producer.id_, number, logLimit_};
      const auto add = [&arguments](const Entry& entry) {
        arguments.insert(arguments.end(), {{&entry.postKind, 1}, entry.key, entry.body});
      };
      add(first);
      while (at + counts.back() < batch.size()) {
        const Entry& next = *batch[at + counts.back()];
        if (next.kind != Entry::Kind::kPost || next.producer != first.producer) break;
        add(next);
        ++counts.back();
      }
      scripts.append(Script::kPost, producer.keys_, arguments);
    }
  }
  for (const std::size_t count : counts) acknowledge(count, link.receive());
}

void Writer::acknowledge(std::size_t count, const Reply& reply) {
  const MutexLock lock(sMutex);
  const std::shared_ptr<Producer> producer = window_.front().producer;
  // The error may be temporary, such as a lack of memory: the post is sent again.
  refusing_ |= reply.isError();
  if (reply.isError() || reply.string() == "GAP") {
    throw LinkError{"the server refuses a post: " + std::string(reply.string())};
  }
  // joinAgain() determines whether the publisher can continue.
  if (reply.string() == "LIFE") throw LinkError{"the stream has another life number"};
  if (std::exchange(refusing_, false)) {
    writeLog("info", address_.name + ": the server accepts posts again");
    failure_.clear();
  }
  if (window_.front().kind == Entry::Kind::kPost) {
    producer->acknowledged_ = window_[count - 1].number;
  }
  if (const std::optional<Id> id = parseId(reply.string())) {
    reached_[producer->keys_] = {producer->life_, *id};
  }
  for (; count > 0; --count) popFront();
  done_.notifyAll();
}

void Writer::popFront() {
  const Entry& entry = window_.front();
  if (entry.kind == Entry::Kind::kLeave) {
    entry.producer->left_ = true;
    eraseFrom(producers_, *entry.producer);
  }
  bytes_ -= entry.key.size() + entry.body.size();
  window_.pop_front();
}

void Writer::check(Link& link, std::deque<Check> checks) {
  std::vector<bool> replied(checks.size());
  std::string failure;
  try {
    for (const Check& each : checks) link.append({"DEL", answeredKey(each.serial)});
    for (std::size_t i = 0; i < checks.size(); ++i) replied[i] = link.receive().integer() > 0;
  } catch (const LinkError& error) {
    failure = error.what();
  }
  const MutexLock lock(sMutex);
  for (std::size_t i = 0; i < checks.size(); ++i) checks[i].result(replied[i]);
  checks.clear();
  if (!failure.empty()) throw LinkError{failure};
}

// Ends the pending checks with false, because the server cannot be reached.
void Writer::endChecks() {
  for (const Check& check : std::exchange(checks_, {})) {
    try {
      check.result(false);
    } catch (const std::bad_alloc&) {
      // Without memory, no timeout can be queued.
      continue;
    }
  }
}

void Writer::onEstablished() {
  const MutexLock lock(sMutex);
  if (!failure_.empty() && !refusing_) {
    writeLog("info", address_.name + ": the connection is established again");
  }
  // The reason for which a post was refused is not cleared, so that it is logged once.
  if (!refusing_) failure_.clear();
  established_ = true;
  if (!closed_) onLink_(true);
  done_.notifyAll();
}

void Writer::onFailure(const std::string& reason, const Worker& worker) {
  if (worker.isStopped()) return;
  const MutexLock lock(sMutex);
  const bool isNew = (established_ && !refusing_) || failure_ != reason;
  established_ = false;
  try {
    failure_ = reason;
    if (isNew) {
      writeLog("error", address_.name + ": there is no connection: " + oneLine(reason));
    }
  } catch (const std::bad_alloc&) {
    failure_ = "no memory";  // short enough to be assigned without an allocation
  }
  onLink_(false);
  done_.notifyAll();
  endChecks();
}

}  // namespace standin::redis
