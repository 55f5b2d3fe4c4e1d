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
  ox_msg_streamdata_t row;  // the largest: initialises all
  ox_msg_data_t data;
  ox_msg_t head;
};

// A description that keeps its scheme alive.
using Description = std::shared_ptr<const Scheme::Message>;

// A message with its own copy of what its record points to. It does not change.
struct Message {
  struct Bytes {
    std::string payload, name, addr;
    Description description;                // of the payload; null if it has none
    std::forward_list<std::string> blocks;  // that the payload's descriptors point to
  };
  Record record{};
  ox_msg_data_t ref{};  // what `record` refers to, if it does
  Bytes own, ofRef;
  std::string nulls;              // of a row
  std::uint32_t replyWithin = 0;  // milliseconds; 0 if no reply is wanted or nobody elsewhere asks
};
// With the counts of its owners: blocks of memory at a distance of a power of two share cache
// lines.
static_assert(sizeof(Message) + 16 <= 480);
using MessagePtr = std::shared_ptr<const Message>;

// Whether a row has no value for a field. A null `row` has all values.
bool isNull(const ox_msg_streamdata_t* row, std::uint32_t field);

// Copies a record and what it points to: its payload, the message it refers to, and the blocks of
// both, as the descriptions say. Refuses a block with a size and no address.
MessagePtr copyOf(const Record& record, Description own = {}, const Description* ofRef = nullptr);

// What tells a row from the others of its stream. A row of a table without an index is told by its
// revision, which the key of a row that has none lacks.
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
