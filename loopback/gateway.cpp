#include "loopback/gateway.h"

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

void destroy(Listener& lsn) {
  detach(lsn);
  lsn.stream.reset();
  gateway().listeners.erase(lsn.handle);
  eraseFrom(lsn.conn->listeners, lsn);
}

void destroy(Publisher& pub) {
  if (pub.isOpen()) closePublisher(pub);
  auto& outgoing = gateway().outgoing;
  for (auto at = outgoing.begin(); at != outgoing.end();) {
    at = at->second->owner == &pub ? outgoing.erase(at) : std::next(at);
  }
  pub.stream.reset();
  gateway().publishers.erase(pub.handle);
  eraseFrom(pub.conn->publishers, pub);
}

void destroy(Connection& conn) {
  for (const auto& lsn : std::vector(conn.listeners)) destroy(*lsn);
  for (const auto& pub : std::vector(conn.publishers)) destroy(*pub);
  conn.state = kClosed;
  conn.changed.notify_all();
  gateway().connections.erase(conn.handle);
}

}  // namespace inproc
