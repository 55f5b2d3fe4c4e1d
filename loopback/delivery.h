// The way from a connection's queue to the listeners' callbacks. REQUIRES throughout: the lock.
#ifndef OXLI_LOOPBACK_DELIVERY_H
#define OXLI_LOOPBACK_DELIVERY_H

#include "loopback/objects.h"

namespace inproc {

StoredPtr serviceMessage(std::uint32_t type, const void* data, std::size_t size);
void enqueue(Listener& lsn, std::uint32_t type, StoredPtr message = {});

// These call the listener with the lock released and give its result; what `lsn` refers to must be
// kept alive by the caller.
int hand(Lock& lock, Listener& lsn, std::uint32_t type, const StoredPtr& message);
// A caller's own record.
int handForeign(Lock& lock, Listener& lsn, ox_msg_t& record);
// The closing messages, at once.
void closeListener(Lock& lock, Listener& lsn, std::int32_t reason);

// Takes the listener off its stream and drops what is queued for it; it is closed then.
void detach(Listener& lsn);

// A record that may be read: an outgoing one, or one that this thread is inside the delivery of.
struct KnownRecord {
  Shape shape;
  std::uint32_t type;
  const Outgoing* outgoing;  // null: being delivered
};
// Refuses any other address without touching it.
KnownRecord knownRecord(const ox_msg_t* record);

}  // namespace inproc

#endif  // OXLI_LOOPBACK_DELIVERY_H
