#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "fuzz/fuzz.h"
#include "oxli.h"
#include "standin/scheme.h"

namespace {

using oxli::fuzz::require;
using standin::Scheme;

constexpr std::size_t kMaxFields = 4096;  // includes the fields of nested messages

// Stores values that are read only to check that their memory is readable. Volatile, so that the
// compiler does not omit the reads.
volatile std::size_t sink;

void requireString(const char* string) {
  require(string);
  sink = std::strlen(string);
}

template <class Node, class Check>
std::size_t walk(const Node* list, const Check& check) {
  std::size_t count = 0;
  for (; list; list = list->next) {
    check(*list, count);
    ++count;
  }
  return count;
}

void checkHints(const ox_hint_t* hints) {
  walk(hints, [](const ox_hint_t& hint, std::size_t) {
    requireString(hint.key);
    requireString(hint.value);
  });
}

class Walker {
 public:
  void message(const ox_message_desc_t& message) {
    std::set<std::string> names;
    std::set<const ox_field_desc_t*> fields;
    std::size_t size = 0, total = 0;
    require(message.num_fields ==
            walk(message.fields, [&](const ox_field_desc_t& field, std::size_t position) {
              require(field.number == position && names.insert(field.name).second);
              require(field.offset <= message.size && field.size <= message.size - field.offset);
              fields.insert(&field);
              size = std::max(size, field.offset + field.size);
              total += 1 + this->field(field);
            }));
    require(message.size == size && total <= kMaxFields);

    require(message.num_indices ==
            walk(message.indices, [&](const ox_index_desc_t& index, std::size_t) {
              requireString(index.name);
              requireString(index.desc);
              checkHints(index.hints);
              require(index.num_fields ==
                      walk(index.fields, [&](const ox_index_field_desc_t& member, std::size_t) {
                        require(fields.count(member.field) == 1);
                      }));
            }));
    requireString(message.desc);
    checkHints(message.hints);
    totals_[&message] = total;
  }

 private:
  // Checks the field. Returns the number of fields of its nested message and of the messages nested
  // in that, or 0. A nested message precedes in the list the messages that contain it.
  std::size_t field(const ox_field_desc_t& field) const {
    requireString(field.desc);
    const standin::Type type = standin::typeOf(field.type).value_or(standin::Type{});
    require(field.num_values ==
            walk(field.values, [&](const ox_field_value_desc_t& value, std::size_t) {
              requireString(value.name);
              requireString(value.desc);
              sink = static_cast<std::size_t>(standin::integerAt(type, value.value));
              sink = static_cast<std::size_t>(standin::integerAt(type, value.int_value));
            }));
    require((type.kind == 'm') == (field.msg != nullptr));
    require(field.size == (field.msg ? field.msg->size : type.size));
    return field.msg ? totals_.at(field.msg) : 0;
  }

  std::map<const ox_message_desc_t*, std::size_t> totals_;
};

void check(const Scheme& scheme) {
  Walker walker;
  const auto count = walk(
      scheme.description.messages, [&](const ox_message_desc_t& message, std::size_t position) {
        const auto key = static_cast<std::int32_t>(position);
        const Scheme::Message* const found = scheme.find(OX_KEY_INDEX, &key);
        require(found && &found->description == &message && found->position == position);
        require(scheme.find(OX_KEY_NAME, message.name) == found);
        walker.message(message);
      });
  require(scheme.description.num_messages == count);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  try {
    const std::string input(bytes, bytes + size);
    check(Scheme(input.substr(0, input.find('\0'))));
  } catch (const standin::Refusal& refusal) {
    require(refusal.code == OX_ERR_INVALIDARGUMENT && !refusal.reason.empty());
  }
  return 0;
}
