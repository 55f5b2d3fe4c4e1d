// Controls the stand-in gateway from tests and benchmarks, and defines the flags, states, close
// reasons and result codes that only the stand-in gateway has. Outside standin/, only tests and
// benchmarks include this file. Any thread may call the functions, also from inside a callback.
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
  kReplyWanted = 1,   // queues OX_MSG_ZRMQ_TIMEOUT unless a reply arrives within `reply_timeout`
  kClearDeleted = 2,  // removes the rows of the record's message with a lower revision
};

// Values of ox_conn_getstate, ox_lsn_getstate and ox_pub_getstate.
enum States : int {
  kClosed = 0,
  kOpening = 1,  // listener: OX_MSG_OPEN is queued; connection: its server is not reached
  kActive = 2,
  kClosing = 3,  // listener: OX_MSG_CLOSE is queued; publisher: its posts are being sent
};

// Payload of OX_MSG_CLOSE.
enum CloseReasons : int {
  kClosedByOwner = 0,
  kStreamClosed = 1,
  kConnectionClosed = 2,
  kMessagesLost = 3,  // the server discarded messages before they were read
};

// Result codes that only the stand-in gateway has.
enum ResultCodes : int {
  kQueueFull = 0x70001,   // a post exceeds the queue_limit of a connection; no listener gets it
  kNoServer = 0x70002,    // the server is not reached, or refuses the connection
  kWindowFull = 0x70003,  // the server acknowledges too slowly; the post is not sent
  kNotAcknowledged = 0x70004,  // the server has not acknowledged in time what was posted
};

// Makes the next call of `function`, such as "ox_conn_open", return `code` and do nothing else.
void failNext(const char* function, int code);
// Makes the next call of `function` run `body` first, on the calling thread and without a lock,
// like a callback that the gateway makes during that call.
void runDuringNext(const char* function, std::function<void()> body);

// Queues a record of the caller, which must remain valid until it has been delivered `times` times.
// The listener receives the same pointer, whatever the listener's state; closing or destroying the
// listener discards the record. No scheme describes the record: if it is a row and is posted again,
// the post is refused; if it is a data message, listeners get a parse error. A post that refers to
// the record copies none of its blocks. Returns false if the listener does not exist or `times` is
// 0.
bool deliver(ox_listener_t* lsn, const ox_msg_t* record, std::size_t times = 1);
// Calls the listener on this thread, outside any ox_ call. Returns its result, or
// OX_ERR_INVALIDARGUMENT if it does not exist.
int deliverNow(ox_listener_t* lsn, ox_msg_t* record);

// What was called and logged while recording was on, as `ox_conn_open "a=1"` and `info: line`.
void recordCalls(bool on);
std::vector<std::string> calls();
std::vector<std::string> logLines();
void clearCalls();

// Waits until everything that was posted in this process, also to servers, is queued for the open
// listeners of this process, and until the threads that were stopped have ended. Returns false if
// that takes longer than 20 seconds.
bool settle();

// The number of connections, listeners, publishers, outgoing messages, streams and schemes.
std::size_t liveObjects();

// Raises the exit event on a new thread and waits for it. Returns false if no handler is
// registered.
bool raiseExit();

}  // namespace standin

#endif  // OXLI_STANDIN_CONTROL_H
