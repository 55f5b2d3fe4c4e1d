#ifndef OXLI_LOOPBACK_SCHEME_H
#define OXLI_LOOPBACK_SCHEME_H

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "loopback/values.h"

namespace inproc {

// Description records built from a scheme text, whose grammar README.md gives. They live and stay
// where they are as long as the object; nothing changes after the constructor.
class Scheme {
 public:
  struct Message {
    ox_message_desc_t* description;
    std::uint32_t position;
    std::uint64_t index;  // `position` or UNKEYED_INDEX
    std::uint32_t id;
    std::uint32_t code;                       // 0: the publisher's mode decides
    std::vector<std::size_t> zblocks;         // offsets of the block descriptors in the payload
    std::vector<const ox_field_desc_t*> key;  // the first index's fields; none: rows have no key
  };

  explicit Scheme(std::string source);
  Scheme(const Scheme&) = delete;
  Scheme& operator=(const Scheme&) = delete;

  // Null when there is none.
  const Message* byPosition(std::int32_t position) const;
  const Message* byId(std::int32_t id) const;
  const Message* byName(const std::string& name) const;

  const std::string text;
  ox_scheme_desc_t description{};

 private:
  const char* keep(const std::string& kept) { return texts_.emplace_back(kept).c_str(); }
  const void* keepInteger(Type type, const std::string& digits);
  void addMessage(const std::string& name, const Properties& source);
  void addField(Message& message, const std::string& item, const Properties& source);
  void addIndex(Message& message, const std::string& name, const Properties& source);
  ox_hint_t* hintsOf(const Properties& source);

  std::vector<Message> messages_;
  // Deques, whose elements never move.
  std::deque<ox_message_desc_t> descriptions_;
  std::deque<ox_field_desc_t> fields_;
  std::deque<ox_field_value_desc_t> values_;
  std::deque<ox_index_desc_t> indices_;
  std::deque<ox_index_field_desc_t> indexFields_;
  std::deque<ox_hint_t> hints_;
  std::deque<std::string> texts_;
  std::deque<std::array<char, 8>> integers_;
};

}  // namespace inproc

#endif  // OXLI_LOOPBACK_SCHEME_H
