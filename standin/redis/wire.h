// Encodes and decodes what a server stores: messages, ids of the log, and pairs of numbers.
//
// The bytes of a message: a number is a sequence of groups of 7 bits, lowest group first; the
// highest bit of a byte is set if another group follows. A string is its size in bytes, and its
// bytes.
//
//   version 1, type, user id, serial number, milliseconds within which a reply is wanted, part,
//   1 if the message refers to another one, else 0; of that other message: type, user id, serial
//   number, part
//
//   part: name, address, number of null flags + 1 (0 if the row has no null flags), the null flags,
//   payload, number of z-blocks; of each z-block, in the order of the offsets: offset in the
//   payload, bytes
#ifndef OXLI_STANDIN_REDIS_WIRE_H
#define OXLI_STANDIN_REDIS_WIRE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "standin/message.h"

namespace standin::redis {

std::string encode(const Message& message, std::chrono::milliseconds replyWithin);

// Makes a message of bytes that a server has sent. The bytes are untrusted: no address in them is
// used, and bytes that are malformed or do not match the scheme are refused with
// OX_ERR_INVALIDARGUMENT. `rev` is the revision of a row, or 0 if the message must not be a row.
// The scheme may be null.
MessagePtr decode(std::string_view bytes, const std::shared_ptr<const Scheme>& scheme,
                  std::int64_t rev);

// The id of an entry in the log.
struct Id {
  std::int64_t rev = 0;
  std::int64_t number = 0;

  bool operator<(const Id& other) const {
    return rev != other.rev ? rev < other.rev : number < other.number;
  }
  // Returns whether an entry with this id can be the next one after the entry with the other id.
  bool follows(const Id& other) const {
    return rev == other.rev ? number == other.number + 1 : rev == other.rev + 1 && number == 0;
  }
  std::string string() const { return std::to_string(rev) + '-' + std::to_string(number); }
};
std::optional<Id> parseId(std::string_view string);

// Parses two numbers with a colon between them. Returns nullopt if the string has another form.
std::optional<std::pair<std::int64_t, std::int64_t>> parsePair(std::string_view string);

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_WIRE_H
