// The records of messages, and the copies of them that listeners receive.
#ifndef OXLI_STANDIN_MESSAGE_H
#define OXLI_STANDIN_MESSAGE_H

#include <cstdint>
#include <forward_list>
#include <memory>
#include <string>

#include "standin/scheme.h"

namespace standin {

// Memory for any record. What all records begin with may be read through any member.
union Record {
  ox_msg_streamdata_t row;  // the largest member: initialising it initialises the union
  ox_msg_data_t data;
  ox_msg_t head;
};

// A description that shares ownership of its scheme.
using Description = std::shared_ptr<const Scheme::Message>;

// A message with its own copy of what its record points to. It does not change.
struct Message {
  struct Bytes {
    std::string payload, name, addr;
    Description description;                // of the payload; null if it has none
    std::forward_list<std::string> blocks;  // that the payload's descriptors point to
  };
  Record record{};
  ox_msg_data_t ref{};  // the message that `record` refers to, if any
  Bytes own, ofRef;
  std::string nulls;  // of a row
  // Reply timeout in milliseconds of a request that a server has passed; otherwise 0.
  std::uint32_t replyWithin = 0;
};
// The 16 bytes are the reference counts. The limit prevents that a message fills a block of 512
// bytes: blocks at a distance of a power of two compete for the same cache sets.
static_assert(sizeof(Message) + 16 <= 480);
using MessagePtr = std::shared_ptr<const Message>;

// Returns whether a row has no value for a field. Returns false if `row` is null.
bool isNull(const ox_msg_streamdata_t* row, std::uint32_t field);

// Copies a record and what it points to: its payload, the message it refers to, and the blocks of
// both, as their descriptions define. Refuses a block with a size and no address.
MessagePtr copyOf(const Record& record, Description own = {}, const Description* ofRef = nullptr);

// Returns the key that identifies a row in its stream: the table and the fields of its first index.
// In a table without an index, the revision replaces the fields; it is left out while the row has
// no revision yet.
std::string rowKey(const Message& row);

// Makes a message that no publisher posted.
MessagePtr makeMessage(std::uint32_t type, const void* data, std::size_t size,
                       const char* name = "", std::uint32_t userId = 0);
template <class Payload>
MessagePtr makeMessage(std::uint32_t type, const Payload& payload) {
  return makeMessage(type, &payload, sizeof payload);
}

}  // namespace standin

#endif  // OXLI_STANDIN_MESSAGE_H
