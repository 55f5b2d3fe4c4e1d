// Settings texts, and the schemes that are described in them.
#ifndef OXLI_STANDIN_SCHEME_H
#define OXLI_STANDIN_SCHEME_H

#include <charconv>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "oxli.h"
#include "utils/properties.h"

namespace standin {

using oxutils::Properties;

// Ends an ox_ function early: thrown where the reason is found out, made its result by call().
struct Ended {
  int code;
};

inline void require(bool condition, int code = OX_ERR_INVALIDARGUMENT) {
  if (!condition) throw Ended{code};
}

// The readers below refuse malformed text, a null one included, with OX_ERR_INVALIDARGUMENT.

// The pairs of `text` over those of `under`.
Properties parse(const char* text, Properties under = {});
// What a nested settings text, "?{...}" or quoted, holds.
std::string blockText(const Properties& settings, const std::string& key);
// Its pairs; without the key: none.
Properties block(const Properties& settings, const std::string& key);

template <class T>
T toNumber(const std::string& text) {
  T value{};
  const char* const end = text.data() + text.size();
  const std::from_chars_result read = std::from_chars(text.data(), end, value);
  require(read.ec == std::errc() && read.ptr == end);
  return value;
}

template <class T>
T number(const Properties& settings, const std::string& key, T fallback) {
  return settings.has(key) ? toNumber<T>(settings.get(key)) : fallback;
}

// What a type text says; the kinds are those of README.md.
struct Type {
  char kind;
  std::size_t size;  // 0 for m
};

Type typeOf(const std::string& text);
// The integer at `data`, with its sign; an unsigned one of 8 bytes as its bits.
std::int64_t integerAt(Type type, const void* data);

// Where a payload holds descriptors of z-blocks: the offset, and the number of the message's own
// field that the descriptor is or lies in. In order of the offsets; no two overlap.
using ZFields = std::vector<std::pair<std::size_t, std::uint32_t>>;

// Description records built from a scheme text, whose grammar README.md gives. They live and stay
// where they are as long as the object; nothing changes after the constructor.
class Scheme {
 public:
  struct Message {
    const Scheme* scheme = nullptr;
    ox_message_desc_t description{};
    std::uint32_t position = 0;
    std::uint64_t index = 0;  // `position` or UNKEYED_INDEX
    std::uint32_t id = UNKEYED_ID;
    std::uint32_t code = 0;     // 0: the publisher's mode decides
    std::size_t numFields = 0;  // those of nested messages included
    ZFields zFields;
    std::vector<const ox_field_desc_t*> key;  // the first index's fields; none: rows have no key
  };

  explicit Scheme(const std::string& text);
  Scheme(const Scheme&) = delete;
  Scheme& operator=(const Scheme&) = delete;

  // By an OX_KEY_ type; null when there is none.
  const Message* find(int keyType, const void* key) const;
  // Whether every message of the other scheme is in this one, with the same fields.
  bool covers(const Scheme& other) const;

  ox_scheme_desc_t description{};

 private:
  template <class T>
  T& make(T value = {});
  template <class Node>
  Node& append(Node**& end);
  const char* keep(const std::string& text) { return make(text).c_str(); }
  const void* keepInteger(Type type, const std::string& digits);
  void addMessage(const std::string& name, const Properties& source);
  void addField(Message& message, const std::string& item, const Properties& source);
  void addIndex(Message& message, const std::string& name, const Properties& source);
  ox_hint_t* hintsOf(const Properties& source);

  std::deque<Message> messages_;  // whose elements never move
  std::vector<std::shared_ptr<void>> kept_;
};

}  // namespace standin

#endif  // OXLI_STANDIN_SCHEME_H
