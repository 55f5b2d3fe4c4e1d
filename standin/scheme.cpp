#include "standin/scheme.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace standin {
namespace {

constexpr std::size_t kMaxPayload = std::size_t{1} << 20;
constexpr std::size_t kDecimalSize = 9;
// Of a list, and fields of a message, those of nested ones included. Keeps small what is squared
// below, and what doubles with every level of nesting.
constexpr std::size_t kMaxItems = 4096;

// The items of a comma-separated list, none of them empty.
std::vector<std::string> list(const Properties& settings, const std::string& key) {
  std::vector<std::string> items;
  if (!settings.has(key)) return items;
  const std::string& text = settings.get(key);
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    require(end > begin && items.size() < kMaxItems);
    items.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return items;
}

// "name:rest" as its two halves; without a colon the second one is empty.
std::pair<std::string, std::string> halves(const std::string& item) {
  const std::size_t colon = item.find(':');
  if (colon == std::string::npos) return {item, {}};
  return {item.substr(0, colon), item.substr(colon + 1)};
}

bool isKnownType(std::uint32_t code) {
  static constexpr std::uint32_t kKnown[] = {
      OX_MSG_OPEN,         OX_MSG_CLOSE,         OX_MSG_TIME,           OX_MSG_DATA,
      OX_MSG_STREAM_DATA,  OX_MSG_PARSEERR,      OX_MSG_TN_BEGIN,       OX_MSG_TN_COMMIT,
      OX_MSG_ZRMQ_TIMEOUT, OX_MSG_ZRREPL_ONLINE, OX_MSG_ZRREPL_LIFENUM, OX_MSG_ZRREPL_CLEARDELETED,
      OX_MSG_ZRREPL_STATE};
  return std::find(std::begin(kKnown), std::end(kKnown), code) != std::end(kKnown);
}

// Same names, types and places. Of a nested message the name is enough: it is compared itself.
bool sameFields(const ox_message_desc_t& a, const ox_message_desc_t& b) {
  const ox_field_desc_t* left = a.fields;
  const ox_field_desc_t* right = b.fields;
  for (; left && right; left = left->next, right = right->next) {
    const auto same = [](const char* x, const char* y) { return std::strcmp(x, y) == 0; };
    if (!same(left->name, right->name) || !same(left->type, right->type)) return false;
    if (left->offset != right->offset) return false;
    if (left->msg && !same(left->msg->name, right->msg->name)) return false;
  }
  return !left && !right;
}

}  // namespace

Properties parse(const char* text, Properties under) {
  require(text && under.parse(text));
  return under;
}

std::string blockText(const Properties& settings, const std::string& key) {
  const std::string& text = settings.get(key);
  const bool braced = text.size() > 2 && text.compare(0, 2, "?{") == 0 && text.back() == '}';
  return braced ? text.substr(2, text.size() - 3) : text;
}

Properties block(const Properties& settings, const std::string& key) {
  return parse(blockText(settings, key).c_str());
}

Type typeOf(const std::string& text) {
  require(!text.empty());
  const char kind = text.front();
  if (text == "m") return {kind, 0};
  if (text == "z") return {kind, sizeof(ox_zblock_t)};
  if (text == "d") return {kind, kDecimalSize};
  const auto size = toNumber<std::size_t>(text.substr(1));
  const bool isInteger = kind == 'i' || kind == 'u';
  require(isInteger ? size == 1 || size == 2 || size == 4 || size == 8
                    : kind == 'c' && size >= 1 && size <= kMaxPayload);
  return {kind, size};
}

std::int64_t integerAt(Type type, const void* data) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, data, type.size);
  const std::size_t unused = type.kind == 'u' ? 0 : 64 - 8 * type.size;
  return static_cast<std::int64_t>(bits << unused) >> unused;
}

Scheme::Scheme(const std::string& text) {
  const Properties settings = parse(text.c_str());
  for (const std::string& name : list(settings, "messages")) {
    require(!find(OX_KEY_NAME, name.c_str()) && settings.has("message." + name));
    addMessage(name, block(settings, "message." + name));
  }
}

template <class T>
T& Scheme::make(T value) {
  const auto made = std::make_shared<T>(std::move(value));
  kept_.push_back(made);
  return *made;
}

template <class Node>
Node& Scheme::append(Node**& end) {
  Node& added = make<Node>();
  *end = &added;
  end = &added.next;
  return added;
}

void Scheme::addMessage(const std::string& name, const Properties& source) {
  ox_message_desc_t*& link =
      messages_.empty() ? description.messages : messages_.back().description.next;
  Message& message = messages_.emplace_back();
  ox_message_desc_t& added = message.description;
  message.scheme = this;
  message.position = description.num_messages++;
  message.index = number(source, "noindex", 0) ? UNKEYED_INDEX : message.position;
  message.id = number(source, "id", UNKEYED_ID);
  message.code = number<std::uint32_t>(source, "code", 0);
  // A record of a known type would have to look like one and do what it does.
  require(!isKnownType(message.code));
  added.number = message.id;
  added.name = keep(name);
  added.desc = keep(source.get("desc"));
  added.hints = hintsOf(source);
  for (const std::string& item : list(source, "fields")) addField(message, item, source);
  ZFields& zFields = message.zFields;
  std::sort(zFields.begin(), zFields.end());
  const auto overlap = [](const auto& a, const auto& b) {
    return a.first + sizeof(ox_zblock_t) > b.first;
  };
  require(std::adjacent_find(zFields.begin(), zFields.end(), overlap) == zFields.end());
  for (const std::string& index : list(source, "indices")) addIndex(message, index, source);
  link = &added;
}

void Scheme::addField(Message& message, const std::string& item, const Properties& source) {
  const auto [name, typeText] = halves(item);
  const Properties details = block(source, "field." + name);
  const Type type = typeOf(typeText);

  ox_message_desc_t& owner = message.description;
  ox_field_desc_t** end = &owner.fields;
  std::size_t behind = 0;
  for (; *end; end = &(*end)->next) {
    require((*end)->name != name);
    behind = (*end)->offset + (*end)->size;
  }
  ox_field_desc_t& field = append(end);
  field.number = owner.num_fields++;
  field.name = keep(name);
  field.desc = keep(details.get("desc"));
  field.type = keep(typeText);
  field.size = type.size;
  field.offset = number(details, "offset", behind);
  if (type.kind == 'm') {
    // Only a message listed earlier, so none can hold itself.
    const Message* const nested = find(OX_KEY_NAME, details.get("message").c_str());
    require(nested && &nested->description != &owner);
    field.msg = const_cast<ox_message_desc_t*>(&nested->description);
    field.size = nested->description.size;
    message.numFields += nested->numFields;
    for (const auto& [offset, number] : nested->zFields) {
      message.zFields.emplace_back(field.offset + offset, field.number);
    }
  }
  if (type.kind == 'z') message.zFields.emplace_back(field.offset, field.number);
  require(++message.numFields <= kMaxItems);
  require(field.offset <= kMaxPayload && field.offset + field.size <= kMaxPayload);
  owner.size = std::max(owner.size, field.offset + field.size);

  ox_field_value_desc_t** endOfValues = &field.values;
  for (const auto& [valueName, meaning] : block(details, "values")) {
    const auto [digits, desc] = halves(meaning);
    ox_field_value_desc_t& value = append(endOfValues);
    ++field.num_values;
    value.name = keep(valueName);
    value.desc = keep(desc);
    value.value = value.int_value = keepInteger(type, digits);
  }
}

void Scheme::addIndex(Message& message, const std::string& name, const Properties& source) {
  const Properties details = block(source, "index." + name);
  ox_message_desc_t& owner = message.description;
  ox_index_desc_t** end = &owner.indices;
  for (; *end; end = &(*end)->next) require((*end)->name != name);
  ox_index_desc_t& index = append(end);
  index.name = keep(name);
  index.desc = keep(details.get("desc"));
  index.hints = hintsOf(details);
  ox_index_field_desc_t** endOfFields = &index.fields;
  std::size_t size = 0;
  for (const std::string& item : list(details, "fields")) {
    const auto [fieldName, param] = halves(item);
    ox_index_field_desc_t& member = append(endOfFields);
    ++index.num_fields;
    member.param = param.empty() ? 0 : toNumber<std::int32_t>(param);
    member.field = owner.fields;
    while (member.field && member.field->name != fieldName) member.field = member.field->next;
    require(member.field);
    size += member.field->size;
    require(size <= kMaxPayload);
    if (owner.num_indices > 0) continue;
    // What names a row must not be the address of one post's copy.
    const ox_field_desc_t& key = *message.key.emplace_back(member.field);
    for (const auto& [offset, number] : message.zFields) {
      require(offset + sizeof(ox_zblock_t) <= key.offset || key.offset + key.size <= offset);
    }
  }
  ++owner.num_indices;
}

ox_hint_t* Scheme::hintsOf(const Properties& source) {
  ox_hint_t* hints = nullptr;
  ox_hint_t** end = &hints;
  for (const auto& [key, value] : block(source, "hints")) {
    ox_hint_t& hint = append(end);
    hint.key = keep(key);
    hint.value = keep(value);
  }
  return hints;
}

const void* Scheme::keepInteger(Type type, const std::string& digits) {
  require(type.kind == 'i' || type.kind == 'u');
  const std::int64_t value = type.kind == 'i'
                                 ? toNumber<std::int64_t>(digits)
                                 : static_cast<std::int64_t>(toNumber<std::uint64_t>(digits));
  require(integerAt(type, &value) == value);
  return &make(value);
}

const Scheme::Message* Scheme::find(int keyType, const void* key) const {
  std::uint32_t wanted = 0;
  if (keyType != OX_KEY_NAME) std::memcpy(&wanted, key, sizeof wanted);
  const auto matches = [&](const Message& message) {
    if (keyType == OX_KEY_NAME) {
      return std::strcmp(message.description.name, static_cast<const char*>(key)) == 0;
    }
    if (keyType == OX_KEY_ID) return wanted != UNKEYED_ID && message.id == wanted;
    return keyType == OX_KEY_INDEX && message.position == wanted;
  };
  const auto found = std::find_if(messages_.begin(), messages_.end(), matches);
  return found == messages_.end() ? nullptr : &*found;
}

bool Scheme::covers(const Scheme& other) const {
  const auto isHere = [this](const Message& theirs) {
    const Message* const own = find(OX_KEY_NAME, theirs.description.name);
    return own && sameFields(own->description, theirs.description);
  };
  return std::all_of(other.messages_.begin(), other.messages_.end(), isHere);
}

}  // namespace standin
