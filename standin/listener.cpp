#include "standin/gateway.h"

using namespace standin;

int ox_lsn_new(ox_conn_t* handle, const char* settings, ox_listener_cb_t callback, void* data,
               ox_listener_t** out) {
  return call(__func__, {settings}, handle, [&](Connection& conn, Lock&) {
    require(callback && out);
    const auto lsn = std::make_shared<Listener>();
    lsn->conn = gateway().connections.live(handle);
    lsn->settings = parse(settings);
    lsn->callback = callback;
    lsn->data = data;
    conn.listeners.push_back(lsn);
    *out = gateway().add(lsn);
  });
}

int ox_lsn_open(ox_listener_t* handle, const char* text) {
  return call(__func__, {text}, handle, [&](Listener& lsn, Lock&) {
    const Properties settings = parse(text, lsn.settings);
    const Properties resume = block(settings, "replstate");
    const auto life = number<std::uint32_t>(resume, "lifenum", 0);
    const auto rev = number<std::int64_t>(resume, "rev", 0);
    const std::chrono::milliseconds interval(number<std::uint32_t>(settings, "time", 0));
    require(lsn.state == kClosed && lsn.conn->isOpen(), OX_ERR_INVALIDSTATE);
    lsn.replica = settings.get("mode") == "replica";
    lsn.interval = interval;
    lsn.stream = streamNamed(settings.get("stream"));
    lsn.stream->listeners.push_back(&lsn);
    lsn.state = kOpening;
    lsn.nextTime = Clock::now() + lsn.interval;
    enqueue(lsn, OX_MSG_OPEN);
    if (lsn.replica) sendSnapshot(lsn, life, rev);
  });
}

int ox_lsn_close(ox_listener_t* handle) {
  return call(__func__, {}, handle, [](Listener& lsn, Lock& lock) {
    require(lsn.state != kClosed, OX_ERR_INVALIDSTATE);
    closeListener(lock, lsn, standin::kClosedByOwner);
  });
}

int ox_lsn_getstate(ox_listener_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_lsn_getscheme(ox_listener_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, handle, [&](const Listener& lsn, Lock&) {
    require(scheme);
    require(lsn.stream && lsn.stream->scheme(), OX_ERR_INVALIDSTATE);
    *scheme = const_cast<ox_scheme_desc_t*>(&lsn.stream->scheme()->description);
  });
}

int ox_lsn_destroy(ox_listener_t* handle) {
  return call(__func__, {}, handle, [&](Listener& lsn, Lock& lock) {
    if (lsn.state != kClosed) closeListener(lock, lsn, standin::kClosedByOwner);
    // The callback may have destroyed it.
    if (gateway().listeners.count(handle) > 0) destroy(lsn);
  });
}
