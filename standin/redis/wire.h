// What a server stores, as bytes: messages, ids of the log, and pairs of numbers.
//
// The bytes of a message: numbers are base-128, lowest bits first; strings have their size before
// them.
//
//   version 1, type, user id, serial number, milliseconds within which a reply is wanted, part,
//   number of messages that it refers to (0 or 1); of that one: type, user id, serial number, part
//
//   part: name, address, number of null flags + 1 (0 for none) and the flags, payload, and the
//   z-blocks of the payload by offset: their number; of each: offset, bytes
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

// Makes a message of bytes that a server has sent. They are untrusted: no address in them is
// followed, and what the scheme does not describe is refused with OX_ERR_INVALIDARGUMENT. `rev` is
// the revision of a row, or 0 if the message must not be one. The scheme may be null.
MessagePtr decode(std::string_view bytes, const std::shared_ptr<const Scheme>& scheme,
                  std::int64_t rev);

// The id of an entry in the log.
struct Id {
  std::int64_t rev = 0;
  std::int64_t number = 0;

  bool operator<(const Id& other) const {
    return rev != other.rev ? rev < other.rev : number < other.number;
  }
  // Whether an entry with this id can follow the other one directly.
  bool follows(const Id& other) const {
    return rev == other.rev ? number == other.number + 1 : rev == other.rev + 1 && number == 0;
  }
  std::string string() const { return std::to_string(rev) + '-' + std::to_string(number); }
};
std::optional<Id> parseId(std::string_view string);

// Two numbers with a colon between them.
std::optional<std::pair<std::int64_t, std::int64_t>> parsePair(std::string_view string);

}  // namespace standin::redis

#endif  // OXLI_STANDIN_REDIS_WIRE_H
