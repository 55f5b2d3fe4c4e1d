// Queues messages, calls listeners, and checks the records that an application passes to a call.
#ifndef OXLI_STANDIN_DELIVERY_H
#define OXLI_STANDIN_DELIVERY_H

#include "standin/objects.h"

namespace standin {

void enqueue(Listener& lsn, std::uint32_t type, MessagePtr message = {}, bool posted = false)
    REQUIRES(sMutex);
// Returns the next item of the queue, and removes it unless it is to be delivered again. REQUIRES:
// the queue is not empty.
Item nextItem(Connection& conn) REQUIRES(sMutex);
void discardQueued(const Listener& lsn) REQUIRES(sMutex);

// Calls the listener with sMutex released. Returns the result of the listener.
int callListener(const Item& item) REQUIRES(sMutex);

// A record that may be read: an outgoing one, one that is being delivered on this thread, or one
// that such a delivered record refers to.
struct KnownRecord {
  Record record;                   // a copy of the fields that may be read; others are 0
  bool whole;                      // whether fields after the head may be read
  const Outgoing* outgoing;        // null if it is being delivered
  const Message* delivered;        // null if outgoing, referred to, or of deliver()
  const Description* description;  // of the message; null for a record of deliver()
};
// Returns the known record at an address. Refuses any other address without reading its memory.
KnownRecord knownRecord(const ox_msg_t* record) REQUIRES(sMutex);

}  // namespace standin

#endif  // OXLI_STANDIN_DELIVERY_H
