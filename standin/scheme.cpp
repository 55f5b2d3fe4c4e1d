#include "standin/scheme.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string_view>

namespace standin {
namespace {

constexpr std::size_t kMaxPayload = std::size_t{1} << 20;
constexpr std::size_t kDecimalSize = 9;
// Limit of the items of a list, and of the fields of a message with those of its nested messages,
// whose number can double with every level.
constexpr std::size_t kMaxItems = 4096;

// The two parts of "name:rest"; without a colon the second one is empty.
std::pair<std::string, std::string> splitAtColon(const std::string& item) {
  const std::size_t colon = item.find(':');
  if (colon == std::string::npos) return {item, {}};
  return {item.substr(0, colon), item.substr(colon + 1)};
}

// Parses an integer of that type; an unsigned one is returned as its bits. Returns nullopt if
// `digits` is not such an integer.
std::optional<std::int64_t> toInteger(Type type, const std::string& digits) {
  std::optional<std::int64_t> number = toNumber<std::int64_t>(digits);
  if (type.kind == 'u') {
    const std::optional<std::uint64_t> bits = toNumber<std::uint64_t>(digits);
    number = bits ? std::optional(static_cast<std::int64_t>(*bits)) : std::nullopt;
  }
  return number && integerAt(type, &*number) == *number ? number : std::nullopt;
}

// Reads one message of a scheme into its record.
class MessageReader {
 public:
  MessageReader(const Scheme& scheme, Arena& arena, Scheme::Message& message)
      : scheme_(scheme), arena_(arena), message_(message), record_(message.description) {}

  void read(const std::string& name, Settings source) {
    message_.index = source.extractNumber("noindex", 0) ? UNKEYED_INDEX : message_.position;
    message_.id = source.extractNumber("id", UNKEYED_ID);
    message_.code = source.extractNumber<std::uint32_t>("code", 0);
    // A record of a known type must have the layout of that type.
    if (isKnownType(message_.code)) {
      source.refuse("code=" + std::to_string(message_.code) + " is that of a known type");
    }
    record_.number = message_.id;
    record_.name = arena_.copy(name);
    record_.desc = arena_.copy(source.extract("desc"));
    record_.hints = readHints(source);
    for (const std::string& item : source.extractList("fields", kMaxItems)) {
      const auto [field, type] = splitAtColon(item);
      readField(field, type, source.extractBlock("field." + field));
    }
    ZFields& zFields = message_.zFields;
    std::sort(zFields.begin(), zFields.end());
    const auto overlap = [](const auto& a, const auto& b) {
      return a.first + sizeof(ox_zblock_t) > b.first;
    };
    if (std::adjacent_find(zFields.begin(), zFields.end(), overlap) != zFields.end()) {
      source.refuse("fields of type z overlap");
    }
    for (const std::string& index : source.extractList("indices", kMaxItems)) {
      readIndex(index, source.extractBlock("index." + index));
    }
    source.requireNoneLeft();
  }

 private:
  void readField(const std::string& name, const std::string& typeString, Settings source) {
    const std::optional<Type> type = typeOf(typeString);
    if (!type) source.refuse("unknown type " + typeString);
    ox_field_desc_t& field = arena_.append(lastField_);
    if (!fields_.emplace(name, &field).second) source.refuse("the field is listed twice");
    field.number = record_.num_fields++;
    field.name = arena_.copy(name);
    field.desc = arena_.copy(source.extract("desc"));
    field.type = arena_.copy(typeString);
    field.size = type->size;
    field.offset = source.extractNumber("offset", end_);
    if (type->kind == 'm') nest(field, source);
    if (type->kind == 'z') message_.zFields.emplace_back(field.offset, field.number);
    if (type->kind == 'i' || type->kind == 'u') readValues(field, *type, source);
    if (++message_.numFields > kMaxItems) {
      source.refuse("more than 4096 fields with those of nested messages");
    }
    if (field.offset > kMaxPayload || field.size > kMaxPayload - field.offset) {
      source.refuse("the payload exceeds 1048576 bytes");
    }
    end_ = field.offset + field.size;
    record_.size = std::max(record_.size, end_);
    source.requireNoneLeft();
  }

  void nest(ox_field_desc_t& field, Settings& source) {
    const std::string name = source.extract("message");
    const Scheme::Message* const nested = scheme_.find(OX_KEY_NAME, name.c_str());
    // Listed before, so that no message contains itself.
    if (!nested) source.refuse("no message " + name + " is listed before this one");
    field.msg = const_cast<ox_message_desc_t*>(&nested->description);
    field.size = nested->description.size;
    message_.numFields += nested->numFields;
    for (const auto& [offset, number] : nested->zFields) {
      message_.zFields.emplace_back(field.offset + offset, field.number);
    }
  }

  void readValues(ox_field_desc_t& field, Type type, Settings& source) {
    ox_field_value_desc_t** end = &field.values;
    const Settings values = source.extractBlock("values");
    for (const auto& [name, meaning] : values.left()) {
      const auto [digits, desc] = splitAtColon(meaning);
      const std::optional<std::int64_t> number = toInteger(type, digits);
      if (!number) values.refuse(name + " has no number of the field's type");
      ox_field_value_desc_t& value = arena_.append(end);
      ++field.num_values;
      value.name = arena_.copy(name);
      value.desc = arena_.copy(desc);
      value.value = value.int_value = &arena_.make(*number);
    }
  }

  void readIndex(const std::string& name, Settings source) {
    if (!indices_.insert(name).second) source.refuse("the index is listed twice");
    ox_index_desc_t& index = arena_.append(lastIndex_);
    index.name = arena_.copy(name);
    index.desc = arena_.copy(source.extract("desc"));
    index.hints = readHints(source);
    ox_index_field_desc_t** end = &index.fields;
    std::size_t size = 0;
    for (const std::string& item : source.extractList("fields", kMaxItems)) {
      const auto [fieldName, param] = splitAtColon(item);
      const auto found = fields_.find(fieldName);
      if (found == fields_.end()) source.refuse("no field " + fieldName);
      const std::optional<std::int32_t> number =
          toNumber<std::int32_t>(param.empty() ? "0" : param);
      if (!number) source.refuse("fields: " + item + " does not end with a number in range");
      ox_index_field_desc_t& member = arena_.append(end);
      ++index.num_fields;
      member.param = *number;
      member.field = found->second;
      size += member.field->size;
      if (size > kMaxPayload) source.refuse("the fields exceed 1048576 bytes");
      if (record_.num_indices == 0) addToKey(*member.field, source);
    }
    ++record_.num_indices;
    source.requireNoneLeft();
  }

  void addToKey(const ox_field_desc_t& field, const Settings& source) {
    // A descriptor contains the address of a copy, which differs for each post.
    for (const auto& [offset, number] : message_.zFields) {
      if (offset + sizeof(ox_zblock_t) > field.offset && field.offset + field.size > offset) {
        source.refuse(std::string("field ") + field.name + " overlaps one of type z");
      }
    }
    message_.key.push_back(&field);
  }

  ox_hint_t* readHints(Settings& source) {
    ox_hint_t* hints = nullptr;
    ox_hint_t** end = &hints;
    const Settings block = source.extractBlock("hints");
    for (const auto& [key, value] : block.left()) {
      ox_hint_t& hint = arena_.append(end);
      hint.key = arena_.copy(key);
      hint.value = arena_.copy(value);
    }
    return hints;
  }

  const Scheme& scheme_;
  Arena& arena_;
  Scheme::Message& message_;
  ox_message_desc_t& record_;
  ox_field_desc_t** lastField_ = &record_.fields;
  ox_index_desc_t** lastIndex_ = &record_.indices;
  std::map<std::string, ox_field_desc_t*> fields_;
  std::set<std::string> indices_;
  std::size_t end_ = 0;  // of the field read last
};

// Compares names, types and offsets. Compares nested messages only by name, because covers() also
// compares these messages themselves.
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

bool isKnownType(std::uint32_t code) {
  static constexpr std::uint32_t kKnown[] = {
      OX_MSG_OPEN,         OX_MSG_CLOSE,         OX_MSG_TIME,           OX_MSG_DATA,
      OX_MSG_STREAM_DATA,  OX_MSG_PARSEERR,      OX_MSG_TN_BEGIN,       OX_MSG_TN_COMMIT,
      OX_MSG_ZRMQ_TIMEOUT, OX_MSG_ZRREPL_ONLINE, OX_MSG_ZRREPL_LIFENUM, OX_MSG_ZRREPL_CLEARDELETED,
      OX_MSG_ZRREPL_STATE};
  return std::find(std::begin(kKnown), std::end(kKnown), code) != std::end(kKnown);
}

std::optional<Type> typeOf(const std::string& string) {
  if (string.empty()) return std::nullopt;
  const char kind = string.front();
  if (string == "m") return Type{kind, 0};
  if (string == "z") return Type{kind, sizeof(ox_zblock_t)};
  if (string == "d") return Type{kind, kDecimalSize};
  const std::size_t size = toNumber<std::size_t>(string.substr(1)).value_or(0);
  const bool isInteger = kind == 'i' || kind == 'u';
  const bool isKnown = isInteger ? size == 1 || size == 2 || size == 4 || size == 8
                                 : kind == 'c' && size >= 1 && size <= kMaxPayload;
  return isKnown ? std::optional(Type{kind, size}) : std::nullopt;
}

std::int64_t integerAt(Type type, const void* data) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, data, type.size);
  const std::size_t unused = type.kind == 'u' ? 0 : 64 - 8 * type.size;
  return static_cast<std::int64_t>(bits << unused) >> unused;
}

Scheme::Scheme(const std::string& string) : string_(string) {
  Settings source("scheme", string);
  ox_message_desc_t** end = &description.messages;
  for (const std::string& name : source.extractList("messages", kMaxItems)) {
    const std::string key = "message." + name;
    if (byName_.count(name) > 0) source.refuse(key + " is listed twice");
    if (!source.has(key)) source.refuse(key + " is missing");
    Message& message = messages_.emplace_back();
    message.scheme = this;
    message.position = description.num_messages++;
    MessageReader(*this, arena_, message).read(name, source.extractBlock(key));
    byName_.emplace(name, &message);
    *end = &message.description;
    end = &message.description.next;
  }
  source.requireNoneLeft();
}

const Scheme::Message* Scheme::find(int keyType, const void* key) const {
  if (keyType == OX_KEY_NAME) {
    const auto found = byName_.find(std::string_view(static_cast<const char*>(key)));
    return found == byName_.end() ? nullptr : found->second;
  }
  std::uint32_t wanted = 0;
  std::memcpy(&wanted, key, sizeof wanted);
  if (keyType == OX_KEY_INDEX) return wanted < messages_.size() ? &messages_[wanted] : nullptr;
  if (keyType != OX_KEY_ID || wanted == UNKEYED_ID) return nullptr;
  const auto hasId = [wanted](const Message& message) { return message.id == wanted; };
  const auto found = std::find_if(messages_.begin(), messages_.end(), hasId);
  return found == messages_.end() ? nullptr : &*found;
}

bool Scheme::covers(const Scheme& other) const {
  const auto isHere = [this](const auto& theirs) {
    const Message* const own = find(OX_KEY_NAME, theirs.first.c_str());
    return own && sameFields(own->description, theirs.second->description);
  };
  return std::all_of(other.byName_.begin(), other.byName_.end(), isHere);
}

}  // namespace standin
