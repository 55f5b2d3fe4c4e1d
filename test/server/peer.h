// What the tests of servers and the processes that they start have in common.
#ifndef OXLI_TEST_SERVER_PEER_H
#define OXLI_TEST_SERVER_PEER_H

#include <string>

#include "oxli.h"

namespace oxli::test {

// The payload of a message `item`, whose key as a row is `key`.
#pragma pack(push, 1)
struct Item {
  int32_t key;
  int64_t value;
};
#pragma pack(pop)

inline const std::string kItems =
    "scheme=?{messages=item;message.item=?{id=1;fields=key:i4,value:i8;indices=pk;"
    "index.pk=?{fields=key}}}";

// Returns the key of the item with that value: a number below `keys`, in a scattered order.
inline int32_t keyOf(int64_t value, int32_t keys) {
  return static_cast<int32_t>((static_cast<uint64_t>(value) * 2654435761U >> 9) %
                              static_cast<uint64_t>(keys));
}

// A connection with one publisher. If a call of the constructor fails, the process ends with the
// exit status 3.
class Peer {
 public:
  Peer(const std::string& connection, const std::string& publisher);
  // Posts an item and returns the result.
  int post(int32_t key, int64_t value, int flags = 0);
  ox_conn_t* conn = nullptr;
  ox_publisher_t* pub = nullptr;

 private:
  ox_msg_t* msg_ = nullptr;
};

// The main function of a process that a test starts:
//   publish CONNECTION PUBLISHER KEYS LAST  posts items with the values 1 to LAST, and closes the
//                                           publisher; if LAST is 0, posts until it is killed
//   reply CONNECTION LISTENER PUBLISHER     replies to items with even values until it is killed
int runPeer(int count, char** arguments);

}  // namespace oxli::test

#endif  // OXLI_TEST_SERVER_PEER_H
