#include "standin/delivery.h"
#include "standin/environment.h"
#include "standin/log.h"
#include "standin/transport.h"
#include "standin/worker.h"

using namespace standin;

namespace {

constexpr std::size_t kDefaultQueueLimit = 1000000;

// Extracts the settings of the connection's server. Returns nullopt if there is none.
std::optional<TransportSettings> extractTransport(Settings& settings) {
  TransportSettings read;
  const auto extractTime = [&settings](const char* key, std::chrono::milliseconds& value) {
    const auto number = settings.extractNumber(key, static_cast<std::uint32_t>(value.count()));
    if (number == 0) settings.refuse(std::string(key) + "=0 is invalid: it must be at least 1");
    value = std::chrono::milliseconds(number);
  };
  extractTime("server_timeout", read.serverTimeout);
  extractTime("post_timeout", read.postTimeout);
  read.window = settings.extractNumber("window", read.window);
  if (read.window == 0) settings.refuse("window=0 is invalid: it must be at least 1");
  read.logLimit = settings.extractNumber("log_limit", read.logLimit);
  read.server = settings.extract("server");
  return read.server.empty() ? std::nullopt : std::optional(read);
}

// Connects to the server. Stores the transport in the connection before waiting, so that the
// transport is closed if another thread meanwhile destroys the connection or closes the
// environment.
void connect(Connection& conn, const TransportSettings& settings) REQUIRES(sMutex) {
  const auto onLink = [weak = conn.weak_from_this()](bool established) REQUIRES(sMutex) {
    const std::shared_ptr<Connection> to = weak.lock();
    if (to && to->isOpen()) to->state = established ? kActive : kOpening;
  };
  const std::shared_ptr<Transport> transport = conn.transport = makeTransport(settings, onLink);
  try {
    transport->open();
    require(conn.transport == transport, "the connection was destroyed while it was being opened",
            OX_ERR_INVALIDSTATE);
  } catch (...) {
    if (conn.transport == transport) conn.transport = nullptr;
    transport->close();
    joinWorkers();
    throw;
  }
}

// Waits until the posts are acknowledged, and disconnects. Refuses if posts were discarded.
void disconnect(const std::shared_ptr<Transport>& transport) REQUIRES(sMutex) {
  if (!transport) return;
  const bool sent = transport->close();
  joinWorkers();
  require(sent, "posts were discarded, because the server did not acknowledge them",
          kNotAcknowledged);
}

// The right to deliver for a connection, until the end of the scope.
class Turn {
 public:
  explicit Turn(Connection& conn) REQUIRES(sMutex) : conn_(conn) {
    conn_.deliverer = std::this_thread::get_id();
  }
  ~Turn() REQUIRES(sMutex) {
    conn_.deliverer = {};
    conn_.changed.notifyAll();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Connection& conn_;
};

MessagePtr timeMessage() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return makeMessage(
      OX_MSG_TIME,
      std::int64_t{std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count()});
}

// Queues a timeout for each open listener of the connection: a request got no reply in time.
void announceTimeout(Connection& conn, std::uint32_t userId) REQUIRES(sMutex) {
  const MessagePtr timeout = makeMessage(OX_MSG_ZRMQ_TIMEOUT, nullptr, 0, "", userId);
  for (const auto& lsn : conn.listeners) {
    if (lsn->isOpen()) enqueue(*lsn, OX_MSG_ZRMQ_TIMEOUT, timeout);
  }
}

void endWait(Connection& conn, std::uint64_t serial, std::uint32_t userId) REQUIRES(sMutex) {
  if (!conn.transport) return announceTimeout(conn, userId);
  // Another process may have replied.
  const auto onResult = [weak = conn.weak_from_this(), userId](bool replied) REQUIRES(sMutex) {
    const std::shared_ptr<Connection> asking = weak.lock();
    if (asking && !replied) announceTimeout(*asking, userId);
  };
  conn.transport->checkReply(serial, onResult);
}

// Queues the messages that are due by the clock. Returns the time of the next one.
Clock::time_point enqueueDue(Connection& conn, Clock::time_point now) REQUIRES(sMutex) {
  auto next = Clock::time_point::max();
  for (const auto& lsn : conn.listeners) {
    if (!lsn->isOpen() || lsn->interval.count() == 0) continue;
    if (lsn->nextTime <= now) {
      enqueue(*lsn, OX_MSG_TIME, timeMessage());
      lsn->nextTime = now + lsn->interval;
    }
    next = std::min(next, lsn->nextTime);
  }
  for (const auto& pub : conn.publishers) {
    auto first = pub->awaited.begin();
    for (; first != pub->awaited.end() && first->second.deadline <= now;
         first = pub->awaited.erase(first)) {
      endWait(conn, first->first, first->second.userId);
    }
    if (first != pub->awaited.end()) next = std::min(next, first->second.deadline);
  }
  return next;
}

// Waits until something is queued, the time is over, or the connection is closed.
void awaitItems(Connection& conn, Clock::time_point until) REQUIRES(sMutex) {
  while (conn.isOpen()) {
    const auto now = Clock::now();
    const auto next = enqueueDue(conn, now);
    if (!conn.queue.empty() || now >= until) return;
    conn.changed.waitUntil(sMutex, std::min(until, next));
  }
}

// Delivers at most as many items as are queued at the beginning, so that posts of callbacks do not
// prolong the call.
int deliverQueued(Connection& conn) REQUIRES(sMutex) {
  for (auto left = conn.queue.size(); left > 0 && !conn.queue.empty() && conn.isOpen();) {
    const auto before = conn.queue.size();
    const Item item = nextItem(conn);
    left -= before - conn.queue.size();
    if (const int result = callListener(item)) return result;
  }
  return OX_ERR_OK;
}

}  // namespace

void standin::destroy(Connection& conn) {
  for (const auto& lsn : std::vector(conn.listeners)) destroy(*lsn);
  for (const auto& pub : std::vector(conn.publishers)) destroy(*pub);
  conn.state = kClosed;
  conn.changed.notifyAll();
  environment().connections.erase(conn.handle);
}

int ox_conn_new(const char* settings, ox_conn_t** out) {
  return call(__func__, {settings}, [&] {
    const MutexLock lock(sMutex);
    requireOpenEnvironment();
    require(out, "the connection's out-parameter is null");
    const auto conn = std::make_shared<Connection>();
    conn->settings.add(settings);
    *out = environment().add(conn);
  });
}

int ox_conn_open(ox_conn_t* handle, const char* string) {
  return call(__func__, {string}, handle, [&](Connection& conn) REQUIRES(sMutex) {
    Settings settings = conn.settings;
    settings.add(string);
    const auto limit = settings.extractNumber("queue_limit", kDefaultQueueLimit);
    if (limit == 0) settings.refuse("queue_limit=0 is invalid: it must be at least 1");
    const std::optional<TransportSettings> server = extractTransport(settings);
    const Opening opening(conn, "the connection is open already");
    logUnknown("ox_conn_open", settings);
    if (server) connect(conn, *server);
    conn.queueLimit = limit;
    conn.state = kActive;
  });
}

int ox_conn_close(ox_conn_t* handle) {
  return call(__func__, {}, handle, [](Connection& conn) REQUIRES(sMutex) {
    require(conn.isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    conn.state = kClosed;
    conn.changed.notifyAll();
    // Moved out before the callbacks, which may open the connection again.
    const std::shared_ptr<Transport> transport = std::exchange(conn.transport, nullptr);
    // Copies, because callbacks may make and destroy objects of this connection.
    const auto publishers = conn.publishers;
    for (const auto& lsn : std::vector(conn.listeners)) {
      if (lsn->state != kClosed) closeListener(*lsn, kConnectionClosed);
    }
    for (const auto& pub : publishers) {
      if (!pub->isOpen()) continue;
      closePublisher(*pub);
      pub->sender = nullptr;
      pub->state = kClosed;
    }
    disconnect(transport);
  });
}

int ox_conn_process(ox_conn_t* handle, int timeout, void* /*reserved*/) {
  return call(__func__, {}, handle, [&](Connection& conn) REQUIRES(sMutex) -> int {
    require(timeout >= 0, "the timeout is negative");
    require(conn.isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    const auto until = Clock::now() + std::chrono::milliseconds(timeout);
    std::optional<Turn> turn;
    if (conn.deliverer != std::this_thread::get_id()) {
      const auto isFree = [&conn]() REQUIRES(sMutex) {
        return !conn.isOpen() || conn.deliverer == std::thread::id();
      };
      if (!conn.changed.waitUntil(sMutex, until, isFree) || !conn.isOpen()) return OX_ERR_OK;
      turn.emplace(conn);
    }
    awaitItems(conn, until);
    return deliverQueued(conn);
  });
}

int ox_conn_getstate(ox_conn_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_conn_destroy(ox_conn_t* handle) {
  return call(__func__, {}, handle, [](Connection& conn) REQUIRES(sMutex) {
    destroy(conn);
    disconnect(std::exchange(conn.transport, nullptr));
  });
}
