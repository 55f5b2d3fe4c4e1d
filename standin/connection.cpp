#include "standin/gateway.h"

using namespace standin;

namespace {

// The right to deliver for a connection.
struct Turn {
  ~Turn() {
    if (!conn) return;
    conn->deliverer = {};
    conn->changed.notify_all();
  }
  Connection* conn = nullptr;
};

MessagePtr timeMessage() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t time =
      std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
  return makeMessage(OX_MSG_TIME, &time, sizeof time);
}

// Queues the messages that the clock makes; gives the moment of the next one.
Clock::time_point enqueueDue(Connection& conn, Clock::time_point now) {
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
      const MessagePtr timeout =
          makeMessage(OX_MSG_ZRMQ_TIMEOUT, nullptr, 0, "", first->second.userId);
      for (const auto& lsn : conn.listeners) {
        if (lsn->isOpen()) enqueue(*lsn, OX_MSG_ZRMQ_TIMEOUT, timeout);
      }
    }
    if (first != pub->awaited.end()) next = std::min(next, first->second.deadline);
  }
  return next;
}

}  // namespace

int ox_conn_new(const char* settings, ox_conn_t** out) {
  return call(__func__, {settings}, [&] {
    const Lock lock = enter();
    require(out, "the connection's out-parameter is null");
    const auto conn = std::make_shared<Connection>();
    conn->settings.add(settings);
    *out = gateway().add(conn);
  });
}

int ox_conn_open(ox_conn_t* handle, const char* string) {
  return call(__func__, {string}, handle, [&](Connection& conn, Lock&) {
    Settings settings = conn.settings;
    settings.add(string);
    const auto limit = settings.extractNumber<std::size_t>("queue_limit", 1000000);
    require(limit > 0, "queue_limit=0 leaves no room for a post");
    require(!conn.isOpen(), "the connection is open already", OX_ERR_INVALIDSTATE);
    logUnknown("ox_conn_open", settings);
    conn.queueLimit = limit;
    conn.state = kActive;
  });
}

int ox_conn_close(ox_conn_t* handle) {
  return call(__func__, {}, handle, [](Connection& conn, Lock& lock) {
    require(conn.isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    conn.state = kClosed;
    conn.changed.notify_all();
    // Copies: callbacks may make, open and destroy objects of this connection.
    const auto publishers = conn.publishers;
    for (const auto& lsn : std::vector(conn.listeners)) {
      if (lsn->state != kClosed) closeListener(lock, *lsn, standin::kConnectionClosed);
    }
    for (const auto& pub : publishers) {
      if (pub->isOpen()) closePublisher(*pub);
    }
  });
}

int ox_conn_process(ox_conn_t* handle, int timeout, void* /*reserved*/) {
  return call(__func__, {}, handle, [&](Connection& conn, Lock& lock) -> int {
    require(timeout >= 0, "the timeout is negative");
    require(conn.isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    const auto until = Clock::now() + std::chrono::milliseconds(timeout);
    Turn turn;
    if (conn.deliverer != std::this_thread::get_id()) {
      const auto isFree = [&] { return !conn.isOpen() || conn.deliverer == std::thread::id(); };
      if (!conn.changed.wait_until(lock, until, isFree) || !conn.isOpen()) return OX_ERR_OK;
      conn.deliverer = std::this_thread::get_id();
      turn.conn = &conn;
    }

    for (;;) {
      const auto now = Clock::now();
      const auto next = enqueueDue(conn, now);
      if (!conn.queue.empty()) break;
      if (now >= until) return OX_ERR_OK;
      conn.changed.wait_until(lock, std::min(until, next));
      if (!conn.isOpen()) return OX_ERR_OK;
    }
    // What callbacks post joins the queue but must not keep this call from ending.
    for (auto left = conn.queue.size(); left > 0 && !conn.queue.empty() && conn.isOpen();) {
      Item& next = conn.queue.front();
      const bool last = next.times == 1;
      const Item item = last ? std::move(next) : next;
      if (last) {
        conn.queue.pop_front();
        if (item.posted) --conn.posted;
        --left;
      } else {
        --next.times;
      }
      if (const int result = hand(lock, item)) return result;
    }
    return OX_ERR_OK;
  });
}

int ox_conn_getstate(ox_conn_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_conn_destroy(ox_conn_t* handle) {
  return call(__func__, {}, handle, [](Connection& conn, Lock&) { destroy(conn); });
}
