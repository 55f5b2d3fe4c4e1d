// Queues, the calls of listeners, and the records that a host may pass to a call.
#ifndef OXLI_STANDIN_DELIVERY_H
#define OXLI_STANDIN_DELIVERY_H

#include "standin/objects.h"

namespace standin {

void enqueue(Listener& lsn, std::uint32_t type, MessagePtr message = {}, bool posted = false)
    REQUIRES(sMutex);
// Removes and returns the next item of the queue. One that is to be delivered again stays.
// REQUIRES: the queue is not empty.
Item nextItem(Connection& conn) REQUIRES(sMutex);
void discardQueued(const Listener& lsn) REQUIRES(sMutex);

// Calls the listener with the lock released. Returns its result.
int callListener(const Item& item) REQUIRES(sMutex);

// A record that may be read: an outgoing one, or one whose delivery this thread is inside of.
struct KnownRecord {
  Record record;                   // as far as it may be read
  bool whole;                      // not the head alone
  const Outgoing* outgoing;        // null if it is being delivered
  const Message* delivered;        // null for an outgoing record or one of deliver()
  const Description* description;  // of the message; null for a record of deliver()
};
// Refuses any other address without reading it.
KnownRecord knownRecord(const ox_msg_t* record) REQUIRES(sMutex);

}  // namespace standin

#endif  // OXLI_STANDIN_DELIVERY_H
