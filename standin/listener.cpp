#include "standin/delivery.h"
#include "standin/environment.h"
#include "standin/log.h"
#include "standin/stream.h"

using namespace standin;

namespace {

// Removes the listener from its stream and discards what is queued for it.
void detach(Listener& lsn) REQUIRES(sMutex) {
  if (lsn.stream) lsn.stream->unfollow(lsn);
  discardQueued(lsn);
  lsn.state = kClosed;
}

}  // namespace

void standin::closeListener(Listener& lsn, std::int32_t reason) {
  detach(lsn);
  if (lsn.replica) callListener({lsn.shared_from_this(), OX_MSG_ZRREPL_STATE});
  // The callback may have opened or destroyed it.
  if (lsn.state != kClosed || environment().listeners.count(lsn.handle) == 0) return;
  callListener({lsn.shared_from_this(), OX_MSG_CLOSE, makeMessage(OX_MSG_CLOSE, reason)});
}

void standin::destroy(Listener& lsn) {
  detach(lsn);
  environment().listeners.erase(lsn.handle);
  eraseFrom(lsn.conn->listeners, lsn);
}

bool standin::extractReplica(Settings& settings) {
  const std::string mode = settings.extract("mode");
  if (!mode.empty() && mode != "replica") {
    settings.refuse("mode=" + mode + " is invalid: it must be \"replica\"");
  }
  return !mode.empty();
}

int ox_lsn_new(ox_conn_t* handle, const char* settings, ox_listener_cb_t callback, void* data,
               ox_listener_t** out) {
  return call(__func__, {settings}, handle, [&](Connection& conn) REQUIRES(sMutex) {
    require(callback && out, "the callback or the listener's out-parameter is null");
    const auto lsn = std::make_shared<Listener>();
    lsn->conn = environment().connections.get(handle);
    lsn->settings.add(settings);
    lsn->callback = callback;
    lsn->data = data;
    conn.listeners.push_back(lsn);
    *out = environment().add(lsn);
  });
}

int ox_lsn_open(ox_listener_t* handle, const char* string) {
  return call(__func__, {string}, handle, [&](Listener& lsn) REQUIRES(sMutex) {
    Settings settings = lsn.settings;
    settings.add(string);
    Settings resume = settings.extractBlock("replstate");
    const auto life = resume.extractNumber<std::uint32_t>("lifenum", 0);
    const auto rev = resume.extractNumber<std::int64_t>("rev", 0);
    const std::chrono::milliseconds interval(settings.extractNumber<std::uint32_t>("time", 0));
    const bool replica = extractReplica(settings);
    const std::string stream = settings.extract("stream");
    const Opening opening(lsn, "the listener is open already");
    require(lsn.conn->isOpen(), "the connection is not open", OX_ERR_INVALIDSTATE);
    logUnknown("ox_lsn_open", settings);
    logUnknown("ox_lsn_open: replstate", resume);
    lsn.replica = replica;
    Stream::follow(stream, lsn, life, rev);
    lsn.interval = interval;
    lsn.nextTime = Clock::now() + interval;
    lsn.state = kOpening;
  });
}

int ox_lsn_close(ox_listener_t* handle) {
  return call(__func__, {}, handle, [](Listener& lsn) REQUIRES(sMutex) {
    require(lsn.state != kClosed, "the listener is not open", OX_ERR_INVALIDSTATE);
    closeListener(lsn, kClosedByOwner);
  });
}

int ox_lsn_getstate(ox_listener_t* handle, int32_t* state) {
  return getState(__func__, handle, state);
}

int ox_lsn_getscheme(ox_listener_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, handle, [&](const Listener& lsn) REQUIRES(sMutex) -> int {
    require(scheme, "the scheme's out-parameter is null");
    // Not logged: applications call this function for each message, also before a publisher with a
    // scheme has joined.
    if (!lsn.stream || !lsn.stream->scheme()) return OX_ERR_INVALIDSTATE;
    *scheme = const_cast<ox_scheme_desc_t*>(&lsn.stream->scheme()->description);
    return OX_ERR_OK;
  });
}

int ox_lsn_destroy(ox_listener_t* handle) {
  return call(__func__, {}, handle, [&](Listener& lsn) REQUIRES(sMutex) {
    if (lsn.state != kClosed) closeListener(lsn, kClosedByOwner);
    // The callback may have destroyed it.
    if (environment().listeners.count(handle) > 0) destroy(lsn);
  });
}
