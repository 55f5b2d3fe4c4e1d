#include <algorithm>

#include "loopback/call.h"
#include "loopback/delivery.h"
#include "loopback/stream.h"

using namespace inproc;

namespace {

// The right to deliver for a connection: one thread's at a time, and again its own when a callback
// calls ox_conn_process. REQUIRES: the lock, at both ends.
class Turn {
 public:
  Turn(Connection& conn, Lock& lock, Clock::time_point until)
      : conn_(conn), nested_(conn.deliverer == std::this_thread::get_id()) {
    const auto isFree = [&conn] { return !conn.open || conn.deliverer == std::thread::id(); };
    mine_ = nested_ || (conn.changed.wait_until(lock, until, isFree) && conn.open);
    if (mine_) conn.deliverer = std::this_thread::get_id();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  ~Turn() {
    if (!mine_ || nested_) return;
    conn_.deliverer = {};
    conn_.changed.notify_all();
  }
  bool isMine() const { return mine_; }

 private:
  Connection& conn_;
  bool nested_;
  bool mine_ = false;
};

// Queues the messages that the clock makes; gives the moment of the next one.
Clock::time_point enqueueDue(Connection& conn, Clock::time_point now) {
  auto next = Clock::time_point::max();
  for (const std::shared_ptr<Listener>& lsn : conn.listeners) {
    if (!lsn->isOpen() || lsn->interval.count() == 0) continue;
    if (lsn->nextTime <= now) {
      const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
      const std::int64_t time =
          std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
      enqueue(*lsn, OX_MSG_TIME, serviceMessage(OX_MSG_TIME, &time, sizeof time));
      lsn->nextTime = now + lsn->interval;
    }
    next = std::min(next, lsn->nextTime);
  }
  auto& awaited = conn.awaited;
  for (; !awaited.empty() && awaited.begin()->first <= now; awaited.erase(awaited.begin())) {
    Content content;
    content.type = OX_MSG_ZRMQ_TIMEOUT;
    content.userId = awaited.begin()->second.userId;
    const StoredPtr timeout = Stored::make(content);
    const std::shared_ptr<Stream> stream = streamNamed(awaited.begin()->second.stream);
    for (Listener* lsn : stream->listeners) {
      if (lsn->conn.get() == &conn) enqueue(*lsn, OX_MSG_ZRMQ_TIMEOUT, timeout);
    }
  }
  return awaited.empty() ? next : std::min(next, awaited.begin()->first);
}

int deliverFirst(Lock& lock, Connection& conn) {
  if (conn.queue.front().record) {
    const Item item = conn.queue.front();
    if (--conn.queue.front().times == 0) conn.queue.pop_front();
    return handForeign(lock, *item.lsn, const_cast<ox_msg_t&>(*item.record));
  }
  const Item item = std::move(conn.queue.front());
  conn.queue.pop_front();
  return hand(lock, *item.lsn, item.type, item.message);
}

}  // namespace

int ox_conn_new(const char* settings, ox_conn_t** out) {
  return call(__func__, {settings}, [&] {
    const Lock lock = enter();
    require(out, OX_ERR_INVALIDARGUMENT);
    auto conn = std::make_shared<Connection>();
    conn->settings = parse(settings);
    *out = gateway().connections.add(gateway().newHandle(), std::move(conn));
    return OX_ERR_OK;
  });
}

int ox_conn_open(ox_conn_t* handle, const char* settings) {
  return call(__func__, {settings}, [&] {
    const Lock lock = enter();
    Connection& conn = *gateway().connections.get(handle);
    const Properties merged = parse(settings, conn.settings);
    require(!conn.open, OX_ERR_INVALIDSTATE);
    conn.open = true;
    return OX_ERR_OK;
  });
}

int ox_conn_close(ox_conn_t* handle) {
  return call(__func__, {}, [&] {
    Lock lock = enter();
    const std::shared_ptr<Connection> conn = gateway().connections.get(handle);
    require(conn->open, OX_ERR_INVALIDSTATE);
    conn->open = false;
    conn->awaited.clear();
    conn->changed.notify_all();
    // Copies: callbacks may make, open and destroy objects of this connection.
    const auto publishers = conn->publishers;
    const auto listeners = conn->listeners;
    for (const std::shared_ptr<Listener>& lsn : listeners) {
      if (lsn->state != kClosed) closeListener(lock, *lsn, loopback::kConnectionClosed);
    }
    for (const std::shared_ptr<Publisher>& pub : publishers) {
      if (pub->open) closePublisher(*pub);
    }
    return OX_ERR_OK;
  });
}

int ox_conn_process(ox_conn_t* handle, int timeout, void* /*reserved*/) {
  return call(__func__, {}, [&]() -> int {
    Lock lock = enter();
    const std::shared_ptr<Connection> conn = gateway().connections.get(handle);
    require(timeout >= 0, OX_ERR_INVALIDARGUMENT);
    require(conn->open, OX_ERR_INVALIDSTATE);
    const auto until = Clock::now() + std::chrono::milliseconds(timeout);
    const Turn turn(*conn, lock, until);
    if (!turn.isMine()) return OX_ERR_OK;

    for (;;) {
      const auto now = Clock::now();
      const auto next = enqueueDue(*conn, now);
      if (!conn->queue.empty()) break;
      if (now >= until) return OX_ERR_OK;
      conn->changed.wait_until(lock, std::min(until, next));
      if (!conn->open) return OX_ERR_OK;
    }
    // What callbacks post joins the queue but must not keep this call from ending.
    for (auto left = conn->queue.size(); left > 0 && !conn->queue.empty() && conn->open;) {
      if (conn->queue.front().times <= 1) --left;
      if (const int result = deliverFirst(lock, *conn)) return result;
    }
    return OX_ERR_OK;
  });
}

int ox_conn_getstate(ox_conn_t* handle, int32_t* state) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    require(state, OX_ERR_INVALIDARGUMENT);
    *state = gateway().connections.get(handle)->open ? kActive : kClosed;
    return OX_ERR_OK;
  });
}

int ox_conn_destroy(ox_conn_t* handle) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    const std::shared_ptr<Connection> conn = gateway().connections.get(handle);
    destroyConnection(conn);
    return OX_ERR_OK;
  });
}
