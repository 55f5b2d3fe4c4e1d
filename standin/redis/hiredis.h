// The functions of the client library hiredis that are used.
#ifndef OXLI_STANDIN_REDIS_HIREDIS_H
#define OXLI_STANDIN_REDIS_HIREDIS_H

#include <hiredis.h>

namespace standin::redis {

struct Hiredis {
  decltype(&redisConnectFd) connectFd;
  decltype(&redisFree) free;
  decltype(&redisAppendCommandArgv) appendCommandArgv;
  decltype(&redisGetReplyFromReader) getReplyFromReader;
  decltype(&redisBufferRead) bufferRead;
  decltype(&redisBufferWrite) bufferWrite;
  decltype(&freeReplyObject) freeReply;
};

// Loads the library when it is first called, so that streams of one process do not need it. The
// library stays loaded. Refuses with kNoServer if it is not installed.
const Hiredis& hiredis();

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_HIREDIS_H
