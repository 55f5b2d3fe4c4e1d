#include <cstdlib>
#include <cstring>

#include "standin/gateway.h"

using namespace standin;

namespace {

constexpr std::int8_t kMaxScale = 18;

struct Decimal {
  std::int64_t mantissa;
  std::int8_t scale;
};

Decimal decimalAt(const void* data) {
  Decimal value{};
  std::memcpy(&value.mantissa, data, sizeof value.mantissa);
  std::memcpy(&value.scale, static_cast<const char*>(data) + sizeof value.mantissa, 1);
  return value;
}

std::string textOf(Decimal value) {
  std::string digits = std::to_string(value.mantissa);
  if (value.scale < 0 || value.scale > kMaxScale) {
    return digits + 'e' + std::to_string(-value.scale);
  }
  if (value.scale == 0) return digits;
  const auto decimals = static_cast<std::size_t>(std::abs(value.scale));
  const std::size_t sign = value.mantissa < 0 ? 1 : 0;
  if (digits.size() - sign <= decimals) {
    digits.insert(sign, decimals + 1 - (digits.size() - sign), '0');
  }
  return digits.insert(digits.size() - decimals, 1, '.');
}

std::string render(const std::string& typeString, const void* data) {
  const Type type = typeOf(typeString).value_or(Type{});
  const char* const bytes = static_cast<const char*>(data);
  switch (type.kind) {
    case 'c':
      return {bytes, std::find(bytes, bytes + type.size, '\0')};
    case 'd':
      return textOf(decimalAt(data));
    case 'i':
      return std::to_string(integerAt(type, data));
    case 'u':
      return std::to_string(static_cast<std::uint64_t>(integerAt(type, data)));
    case 'z':
      return std::to_string(integerAt({'u', sizeof(ox_zblock_t::size)}, data)) + " bytes";
    default:
      throw Refusal{OX_ERR_INVALIDARGUMENT, "values of type " + typeString + " have no string"};
  }
}

// The live scheme with that description, so that an invented address is never read.
std::shared_ptr<const Scheme> schemeAt(std::int64_t address) {
  for (const auto& [text, known] : gateway().schemes) {
    std::shared_ptr<const Scheme> scheme = known.lock();
    if (scheme && reinterpret_cast<std::intptr_t>(&scheme->description) == address) return scheme;
  }
  return nullptr;
}

// Not recursive: messages may be nested thousands of levels deep.
void addFields(std::string& text, const ox_message_desc_t& message, const char* data,
               const ox_msg_streamdata_t* row) {
  struct Level {
    const ox_field_desc_t* next;
    const char* data;
    std::size_t prefix;  // of `name`
  };
  std::vector<Level> levels = {{message.fields, data, 0}};
  std::string name;
  while (!levels.empty()) {
    Level& level = levels.back();
    const ox_field_desc_t* const field = level.next;
    if (!field) {
      levels.pop_back();
      continue;
    }
    level.next = field->next;
    name.resize(level.prefix);
    name += field->name;
    const char* const value = level.data + field->offset;
    if (levels.size() == 1 && isNull(row, field->number)) {
      text += name + "=null\n";
    } else if (field->msg) {
      name += '.';
      levels.push_back({field->msg->fields, value, name.size()});
    } else {
      text += name + '=' + render(field->type, value) + '\n';
    }
  }
}

std::string dump(const KnownRecord& known, const Scheme* scheme) {
  const ox_msg_t& head = known.record.head;
  std::string text =
      "type=" + std::to_string(head.type) + "\nsize=" + std::to_string(head.data_size) + '\n';
  if (!known.whole) return text;
  const ox_msg_data_t& data = known.record.data;
  const ox_msg_streamdata_t* const row =
      head.type == OX_MSG_STREAM_DATA ? &known.record.row : nullptr;
  const std::string name = data.msg_name ? data.msg_name : "";
  text += "name=" + name + "\nuser_id=" + std::to_string(row ? row->user_id : data.user_id) + '\n';
  if (row) text += "rev=" + std::to_string(row->rev) + '\n';
  if (!row && data.addr) text += "addr=" + std::string(data.addr) + '\n';
  const Scheme::Message* const message = scheme ? scheme->find(OX_KEY_NAME, name.c_str()) : nullptr;
  if (message && head.data && message->description.size == head.data_size) {
    addFields(text, message->description, static_cast<const char*>(head.data), row);
  }
  return text;
}

}  // namespace

int ox_getstr(const char* name, const void* data, char* buffer, size_t* size) {
  return call(__func__, {name}, [&]() -> int {
    require(name && data && size, "the type, the value or the size is null");
    const std::string text = render(name, data);
    const std::size_t room = std::exchange(*size, text.size() + 1);
    if (!buffer || room <= text.size()) return OX_ERR_BUFFERTOOSMALL;
    *size = room;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return OX_ERR_OK;
  });
}

int ox_bcd_get(const void* value, int64_t* mantissa, int8_t* scale) {
  return call(__func__, {}, [&] {
    require(value && mantissa && scale, "the value or an out-parameter is null");
    const Decimal decimal = decimalAt(value);
    require(std::abs(decimal.scale) <= kMaxScale, "the decimal's scale is not in -18 to 18");
    *mantissa = decimal.mantissa;
    *scale = decimal.scale;
  });
}

int ox_msg_dump(ox_msg_t* msg, int64_t argument, char* buffer, uint64_t* size) {
  return call(__func__, {}, [&]() -> int {
    const Lock lock = enter();
    require(size, "the size is null");
    const std::string text = dump(knownRecord(msg), schemeAt(argument).get());
    const std::uint64_t room = std::exchange(*size, text.size());
    if (!buffer || room < text.size()) return OX_ERR_BUFFERTOOSMALL;
    text.copy(buffer, text.size());
    return OX_ERR_OK;
  });
}

const char* ox_err_getstr(int code) {
  static constexpr std::pair<int, const char*> kTexts[] = {
      {OX_ERR_OK, "OX_ERR_OK: the operation succeeded"},
      {OX_ERR_INTERNAL, "OX_ERR_INTERNAL: the gateway itself failed"},
      {OX_ERR_INVALIDARGUMENT,
       "OX_ERR_INVALIDARGUMENT: an argument is invalid; the log says which"},
      {OX_ERR_INVALIDSTATE,
       "OX_ERR_INVALIDSTATE: the object's state does not allow the call; the log says why"},
      {OX_ERR_BUFFERTOOSMALL, "OX_ERR_BUFFERTOOSMALL: the buffer does not hold the result"},
      {standin::kQueueFull, "STANDIN_ERR_QUEUEFULL: the queue of a receiving connection is full"}};
  for (const auto& [known, text] : kTexts) {
    if (known == code) return text;
  }
  return "unknown result code";
}
