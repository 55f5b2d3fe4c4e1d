#include "loopback/objects.h"

#include <algorithm>

#include "loopback/delivery.h"
#include "loopback/stream.h"

namespace inproc {

Gateway& gateway() {
  static Gateway& lasting = *new Gateway;
  return lasting;
}

Lock enter() {
  Lock lock(gateway().mutex);
  require(gateway().open, OX_ERR_INVALIDSTATE);
  return lock;
}

void destroyListener(const std::shared_ptr<Listener>& lsn) {
  detach(*lsn);
  lsn->stream.reset();
  auto& siblings = lsn->conn->listeners;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), lsn), siblings.end());
  gateway().listeners.remove(lsn->handle);
}

void destroyPublisher(const std::shared_ptr<Publisher>& pub) {
  if (pub->open) closePublisher(*pub);
  auto& outgoing = gateway().outgoing;
  for (auto at = outgoing.begin(); at != outgoing.end();) {
    at = at->second->owner == pub.get() ? outgoing.erase(at) : std::next(at);
  }
  pub->stream.reset();
  auto& siblings = pub->conn->publishers;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), pub), siblings.end());
  gateway().publishers.remove(pub->handle);
}

void destroyConnection(const std::shared_ptr<Connection>& conn) {
  while (!conn->listeners.empty()) {
    const std::shared_ptr<Listener> lsn = conn->listeners.back();
    destroyListener(lsn);
  }
  while (!conn->publishers.empty()) {
    const std::shared_ptr<Publisher> pub = conn->publishers.back();
    destroyPublisher(pub);
  }
  conn->open = false;
  conn->awaited.clear();
  conn->changed.notify_all();
  gateway().connections.remove(conn->handle);
}

}  // namespace inproc
