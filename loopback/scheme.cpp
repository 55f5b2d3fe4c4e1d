#include "loopback/scheme.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace inproc {
namespace {

constexpr std::size_t kMaxPayload = std::size_t{1} << 20;

template <class Node>
Node& append(std::deque<Node>& pool, Node*& list) {
  Node** end = &list;
  while (*end) end = &(*end)->next;
  *end = &pool.emplace_back();
  return **end;
}

// "name:rest" as its two halves; without a colon the second one is empty.
std::pair<std::string, std::string> halves(const std::string& item) {
  const std::size_t colon = item.find(':');
  if (colon == std::string::npos) return {item, {}};
  return {item.substr(0, colon), item.substr(colon + 1)};
}

ox_field_desc_t* fieldNamed(const ox_message_desc_t& message, const std::string& name) {
  ox_field_desc_t* field = message.fields;
  while (field && field->name != name) field = field->next;
  return field;
}

}  // namespace

Scheme::Scheme(std::string source) : text(std::move(source)) {
  const Properties settings = parse(text.c_str());
  description.scheme_type = number<std::uint32_t>(settings, "type", 0);
  description.features = number<std::uint32_t>(settings, "features", 0);
  for (const std::string& name : list(settings, "messages")) {
    require(!byName(name) && settings.has("message." + name), OX_ERR_INVALIDARGUMENT);
    addMessage(name, block(settings, "message." + name));
  }
}

void Scheme::addMessage(const std::string& name, const Properties& source) {
  ox_message_desc_t& added = append(descriptions_, description.messages);
  Message message{};
  message.description = &added;
  message.position = description.num_messages++;
  message.index = number(source, "noindex", 0) ? UNKEYED_INDEX : message.position;
  message.id = number(source, "id", UNKEYED_ID);
  message.code = number<std::uint32_t>(source, "code", 0);
  // Such a record would be laid out otherwise than its publisher's mode says.
  require(message.code != OX_MSG_STREAM_DATA, OX_ERR_INVALIDARGUMENT);
  added.number = message.id;
  added.name = keep(name);
  added.desc = keep(source.get("desc"));
  added.hints = hintsOf(source);
  for (const std::string& item : list(source, "fields")) addField(message, item, source);
  for (const std::string& index : list(source, "indices")) addIndex(message, index, source);
  messages_.push_back(std::move(message));
}

void Scheme::addField(Message& message, const std::string& item, const Properties& source) {
  ox_message_desc_t& owner = *message.description;
  const auto [name, typeText] = halves(item);
  require(!fieldNamed(owner, name), OX_ERR_INVALIDARGUMENT);
  const Properties details = block(source, "field." + name);
  const Type type = typeOf(typeText);

  const ox_field_desc_t* const previous = owner.fields ? &fields_.back() : nullptr;
  ox_field_desc_t& field = append(fields_, owner.fields);
  field.number = owner.num_fields++;
  field.name = keep(name);
  field.desc = keep(details.get("desc"));
  field.type = keep(typeText);
  field.size = type.size;
  field.offset = number(details, "offset", previous ? previous->offset + previous->size : 0);
  require(field.offset <= kMaxPayload && owner.size <= kMaxPayload, OX_ERR_INVALIDARGUMENT);
  if (type.kind == 'm') {
    // Only a message listed earlier, so none can hold itself.
    const Message* const nested = byName(details.get("message"));
    require(nested, OX_ERR_INVALIDARGUMENT);
    field.msg = nested->description;
    field.size = nested->description->size;
    for (const std::size_t offset : nested->zblocks) {
      message.zblocks.push_back(field.offset + offset);
    }
  }
  if (type.kind == 'z') message.zblocks.push_back(field.offset);
  owner.size = std::max(owner.size, field.offset + field.size);

  if (details.has("value")) field.value = keepInteger(type, details.get("value"));
  for (const auto& [valueName, meaning] : block(details, "values")) {
    const auto [digits, desc] = halves(meaning);
    ox_field_value_desc_t& value = append(values_, field.values);
    ++field.num_values;
    value.name = keep(valueName);
    value.desc = keep(desc);
    value.value = keepInteger(type, digits);
    value.int_value = value.value;
  }
}

void Scheme::addIndex(Message& message, const std::string& name, const Properties& source) {
  const Properties details = block(source, "index." + name);
  ox_message_desc_t& owner = *message.description;
  ox_index_desc_t& index = append(indices_, owner.indices);
  index.name = keep(name);
  index.desc = keep(details.get("desc"));
  index.hints = hintsOf(details);
  for (const std::string& item : list(details, "fields")) {
    const auto [fieldName, param] = halves(item);
    ox_index_field_desc_t& member = append(indexFields_, index.fields);
    ++index.num_fields;
    member.field = fieldNamed(owner, fieldName);
    member.param = param.empty() ? 0 : toNumber<std::int32_t>(param);
    require(member.field, OX_ERR_INVALIDARGUMENT);
    if (owner.num_indices == 0) message.key.push_back(member.field);
  }
  ++owner.num_indices;
}

ox_hint_t* Scheme::hintsOf(const Properties& source) {
  ox_hint_t* hints = nullptr;
  for (const auto& [key, value] : block(source, "hints")) {
    ox_hint_t& hint = append(hints_, hints);
    hint.key = keep(key);
    hint.value = keep(value);
  }
  return hints;
}

const void* Scheme::keepInteger(Type type, const std::string& digits) {
  std::array<char, 8>& kept = integers_.emplace_back();
  withInteger(type, [&](auto value) {
    value = toNumber<decltype(value)>(digits);
    std::memcpy(kept.data(), &value, sizeof value);
  });
  return kept.data();
}

const Scheme::Message* Scheme::byPosition(std::int32_t position) const {
  const auto at = static_cast<std::uint32_t>(position);
  return at < messages_.size() ? &messages_[at] : nullptr;
}

const Scheme::Message* Scheme::byId(std::int32_t id) const {
  const auto wanted = static_cast<std::uint32_t>(id);
  const auto found = std::find_if(messages_.begin(), messages_.end(), [&](const Message& message) {
    return message.id == wanted && wanted != UNKEYED_ID;
  });
  return found == messages_.end() ? nullptr : &*found;
}

const Scheme::Message* Scheme::byName(const std::string& name) const {
  const auto found = std::find_if(messages_.begin(), messages_.end(), [&](const Message& message) {
    return message.description->name == name;
  });
  return found == messages_.end() ? nullptr : &*found;
}

}  // namespace inproc
