// Schemes: the layout of messages, as records of the gateway library.
#ifndef OXLI_STANDIN_SCHEME_H
#define OXLI_STANDIN_SCHEME_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "oxli.h"
#include "standin/settings.h"

namespace standin {

// The type of a field; the kinds are those of README.md.
struct Type {
  char kind;
  std::size_t size;  // in bytes; 0 for m
};

// Returns whether `code` is one of the gateway's own message types.
bool isKnownType(std::uint32_t code);

// Empty if there is no such type.
std::optional<Type> typeOf(const std::string& string);
// Returns the integer at `data`; an unsigned integer above INT64_MAX is returned as its bits.
std::int64_t integerAt(Type type, const void* data);

// The descriptors of z-blocks in a payload: the offset of each, and the number of the message's own
// field that is the descriptor or contains it. Ordered by offset; they do not overlap.
using ZFields = std::vector<std::pair<std::size_t, std::uint32_t>>;

// Owns records of any type. They do not move.
class Arena {
 public:
  template <class T>
  T& make(T value = {}) {
    const auto made = std::make_shared<T>(std::move(value));
    owned_.push_back(made);
    return *made;
  }
  const char* copy(const std::string& string) { return make(string).c_str(); }
  // Appends a node to a list. `end` points to the last link of the list; it is set to the link of
  // the new node.
  template <class Node>
  Node& append(Node**& end) {
    Node& added = make<Node>();
    *end = &added;
    end = &added.next;
    return added;
  }

 private:
  std::vector<std::shared_ptr<void>> owned_;
};

// The description records of a scheme string; README.md describes its grammar. They are valid as
// long as the object exists, and do not change after the constructor.
class Scheme {
 public:
  struct Message {
    const Scheme* scheme = nullptr;
    ox_message_desc_t description{};
    std::uint32_t position = 0;
    std::uint64_t index = 0;  // `position` or UNKEYED_INDEX
    std::uint32_t id = UNKEYED_ID;
    std::uint32_t code = 0;     // type code of its records; 0 for that of the publisher's mode
    std::size_t numFields = 0;  // those of nested messages included
    ZFields zFields;
    std::vector<const ox_field_desc_t*> key;  // fields of the first index; empty if there is none
  };

  // Refuses an invalid string with OX_ERR_INVALIDARGUMENT.
  explicit Scheme(const std::string& string);
  Scheme(const Scheme&) = delete;
  Scheme& operator=(const Scheme&) = delete;

  // Finds a message by an OX_KEY_ type; null if there is none.
  const Message* find(int keyType, const void* key) const;
  // Whether every message of the other scheme is in this one, with the same fields.
  bool covers(const Scheme& other) const;

  // Returns the string that was passed to the constructor.
  const std::string& string() const { return string_; }

  ox_scheme_desc_t description{};

 private:
  const std::string string_;
  Arena arena_;
  std::deque<Message> messages_;  // a deque, because its elements do not move
  std::map<std::string, const Message*, std::less<>> byName_;
};

}  // namespace standin

#endif  // OXLI_STANDIN_SCHEME_H
