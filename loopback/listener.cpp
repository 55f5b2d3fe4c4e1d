#include "loopback/call.h"
#include "loopback/delivery.h"
#include "loopback/stream.h"

using namespace inproc;

namespace {

void configure(Listener& lsn, const Properties& settings) {
  lsn.replica = settings.get("mode") == "replica";
  lsn.interval = std::chrono::milliseconds(number<std::uint32_t>(settings, "time", 0));
}

}  // namespace

int ox_lsn_new(ox_conn_t* conn, const char* settings, ox_listener_cb_t callback, void* data,
               ox_listener_t** out) {
  return call(__func__, {settings}, [&] {
    const Lock lock = enter();
    require(callback && out, OX_ERR_INVALIDARGUMENT);
    auto lsn = std::make_shared<Listener>();
    lsn->conn = gateway().connections.get(conn);
    lsn->settings = parse(settings);
    configure(*lsn, lsn->settings);
    lsn->callback = callback;
    lsn->data = data;
    lsn->conn->listeners.push_back(lsn);
    *out = gateway().listeners.add(gateway().newHandle(), lsn);
    return OX_ERR_OK;
  });
}

int ox_lsn_open(ox_listener_t* handle, const char* text) {
  return call(__func__, {text}, [&] {
    const Lock lock = enter();
    Listener& lsn = *gateway().listeners.get(handle);
    const Properties settings = parse(text, lsn.settings);
    const Properties resume = block(settings, "replstate");
    const auto life = number<std::uint32_t>(resume, "lifenum", 0);
    const auto rev = number<std::int64_t>(resume, "rev", 0);
    require(lsn.state == kClosed && lsn.conn->open, OX_ERR_INVALIDSTATE);
    configure(lsn, settings);
    lsn.stream = streamNamed(settings.get("stream"));
    lsn.stream->listeners.push_back(&lsn);
    lsn.state = kOpening;
    lsn.nextTime = Clock::now() + lsn.interval;
    enqueue(lsn, OX_MSG_OPEN);
    if (lsn.replica) sendSnapshot(*lsn.stream, lsn, life == lsn.stream->life ? rev : 0);
    return OX_ERR_OK;
  });
}

int ox_lsn_close(ox_listener_t* handle) {
  return call(__func__, {}, [&] {
    Lock lock = enter();
    const std::shared_ptr<Listener> lsn = gateway().listeners.get(handle);
    require(lsn->state != kClosed, OX_ERR_INVALIDSTATE);
    closeListener(lock, *lsn, loopback::kClosedByOwner);
    return OX_ERR_OK;
  });
}

int ox_lsn_getstate(ox_listener_t* handle, int32_t* state) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    require(state, OX_ERR_INVALIDARGUMENT);
    *state = gateway().listeners.get(handle)->state;
    return OX_ERR_OK;
  });
}

int ox_lsn_getscheme(ox_listener_t* handle, ox_scheme_desc_t** scheme) {
  return call(__func__, {}, [&] {
    const Lock lock = enter();
    require(scheme, OX_ERR_INVALIDARGUMENT);
    const Listener& lsn = *gateway().listeners.get(handle);
    require(lsn.stream && lsn.stream->scheme, OX_ERR_INVALIDSTATE);
    *scheme = &lsn.stream->scheme->description;
    return OX_ERR_OK;
  });
}

int ox_lsn_destroy(ox_listener_t* handle) {
  return call(__func__, {}, [&] {
    Lock lock = enter();
    const std::shared_ptr<Listener> lsn = gateway().listeners.get(handle);
    if (lsn->state != kClosed) closeListener(lock, *lsn, loopback::kClosedByOwner);
    if (gateway().listeners.has(handle)) destroyListener(lsn);
    return OX_ERR_OK;
  });
}
