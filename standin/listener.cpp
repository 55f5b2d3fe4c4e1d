#include "standin/gateway.h"

using namespace standin;

int ox_lsn_new(ox_conn_t* handle, const char* settings, ox_listener_cb_t callback, void* data,
               ox_listener_t** out) {
  return call(__func__, {settings}, handle, [&](Connection& conn, Lock&) {
    require(callback && out, "the callback or the listener's out-parameter is null");
    const auto lsn = std::make_shared<Listener>();
    lsn->conn = gateway().connections.live(handle);
    lsn->settings.add(settings);
    lsn->callback = callback;
    lsn->data = data;
    conn.listeners.push_back(lsn);
    *out = gateway().add(lsn);
  });
}

int ox_lsn_open(ox_listener_t* handle, const char* string) {
  return call(__func__, {string}, handle, [&](Listener& lsn, Lock&) {
    Settings settings = lsn.settings;
    settings.add(string);
    Settings resume = settings.extractBlock("replstate");
    const auto life = resume.extractNumber<std::uint32_t>("lifenum", 0);
    const auto rev = resume.extractNumber<std::int64_t>("rev", 0);
    const std::chrono::milliseconds interval(settings.extractNumber<std::uint32_t>("time", 0));
    const bool replica = extractReplica(settings);
    const std::string name = settings.extract("stream");
    require(lsn.state == kClosed, "the listener is open already", OX_ERR_INVALIDSTATE);
    require(lsn.conn->isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    logUnknown("ox_lsn_open", settings);
    logUnknown("ox_lsn_open: replstate", resume);
    lsn.replica = replica;
    lsn.interval = interval;
    lsn.stream = streamNamed(name);
    lsn.stream->listeners.push_back(&lsn);
    lsn.state = kOpening;
    lsn.nextTime = Clock::now() + lsn.interval;
    enqueue(lsn, OX_MSG_OPEN);
    if (lsn.replica) sendSnapshot(lsn, life, rev);
  });
}

int ox_lsn_close(ox_listener_t* handle) {
  return call(__func__, {}, handle, [](Listener& lsn, Lock& lock) {
    require(lsn.state != kClosed, "the listener is not open", OX_ERR_INVALIDSTATE);
    closeListener(lock, lsn, standin::kClosedByOwner);
  });
}

int ox_lsn_getstate(ox_listener_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_lsn_getscheme(ox_listener_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, handle, [&](const Listener& lsn, Lock&) -> int {
    require(scheme, "the scheme's out-parameter is null");
    // Not a refusal for the log: delivery asks before each message, and no publisher may have come.
    if (!lsn.stream || !lsn.stream->scheme()) return OX_ERR_INVALIDSTATE;
    *scheme = const_cast<ox_scheme_desc_t*>(&lsn.stream->scheme()->description);
    return OX_ERR_OK;
  });
}

int ox_lsn_destroy(ox_listener_t* handle) {
  return call(__func__, {}, handle, [&](Listener& lsn, Lock& lock) {
    if (lsn.state != kClosed) closeListener(lock, lsn, standin::kClosedByOwner);
    // The callback may have destroyed it.
    if (gateway().listeners.count(handle) > 0) destroy(lsn);
  });
}
