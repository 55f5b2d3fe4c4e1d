// Steers the stand-in gateway from tests and benchmarks; nothing else may include it. Every
// function may be called from any thread, inside a callback too.
#ifndef OXLI_STANDIN_CONTROL_H
#define OXLI_STANDIN_CONTROL_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "oxli.h"

namespace standin {

// Flags of ox_pub_post.
enum PostFlags : int {
  kReplyWanted = 1,   // no reply within the publisher's `reply_timeout`: OX_MSG_ZRMQ_TIMEOUT
  kClearDeleted = 2,  // drops the rows of the record's message older than its `rev`
};

// Values of ox_conn_getstate, ox_lsn_getstate and ox_pub_getstate.
enum States : int {
  kClosed = 0,
  kOpening = 1,  // listener: OX_MSG_OPEN is queued
  kActive = 2,
  kClosing = 3,  // listener: OX_MSG_CLOSE is queued
};

// Payload of OX_MSG_CLOSE.
enum CloseReasons : int { kClosedByOwner = 0, kStreamClosed = 1, kConnectionClosed = 2 };

// Result codes of the stand-in gateway's own.
enum ResultCodes : int {
  kQueueFull = 0x70001,  // a post does not fit into a connection's queue, and reaches nobody
};

// The next call of `function` ("ox_conn_open") returns `code`, once, and does nothing else.
void failNext(const char* function, int code);
// The next call of `function` runs `body` first, on its thread and without a lock, as a callback
// that the gateway makes during the call would run.
void runDuringNext(const char* function, std::function<void()> body);

// Queues the caller's own record, which stays valid until it has been delivered `times` times: the
// listener's connection hands over the very pointer, whatever the listener's state. Closing or
// destroying the listener drops it. Its z-fields are not known: posting it again, or a message that
// refers to it, copies no block. False when the listener is not alive.
bool deliver(ox_listener_t* lsn, const ox_msg_t* record, std::size_t times = 1);
// Calls the listener at once on this thread, outside any ox_ call; its result, or
// OX_ERR_INVALIDARGUMENT when it is not alive.
int deliverNow(ox_listener_t* lsn, ox_msg_t* record);

// What was called and logged while recording was on: `ox_conn_open "a=1"`, `info: text`.
void recordCalls(bool on);
std::vector<std::string> calls();
std::vector<std::string> logLines();
void clearCalls();

// Connections, listeners, publishers, outgoing messages, streams and schemes.
std::size_t liveObjects();

// Raises the exit event on a new thread and waits for it; false when no handler is registered.
bool raiseExit();

}  // namespace standin

#endif  // OXLI_STANDIN_CONTROL_H
