#include "standin/value.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "standin/environment.h"

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

std::string decimalString(Decimal value) {
  std::string digits = std::to_string(value.mantissa);
  if (value.scale < 0 || value.scale > kMaxScale) {
    return digits + 'e' + std::to_string(-value.scale);
  }
  if (value.scale == 0) return digits;
  const auto decimals = static_cast<std::uint8_t>(value.scale);
  const std::size_t sign = value.mantissa < 0 ? 1 : 0;
  if (digits.size() - sign <= decimals) {
    digits.insert(sign, decimals + 1 - (digits.size() - sign), '0');
  }
  return digits.insert(digits.size() - decimals, 1, '.');
}

}  // namespace

std::string standin::valueString(const std::string& type, const void* data) {
  const Type known = typeOf(type).value_or(Type{});
  const char* const bytes = static_cast<const char*>(data);
  switch (known.kind) {
    case 'c':
      return {bytes, std::find(bytes, bytes + known.size, '\0')};
    case 'd':
      return decimalString(decimalAt(data));
    case 'i':
      return std::to_string(integerAt(known, data));
    case 'u':
      return std::to_string(static_cast<std::uint64_t>(integerAt(known, data)));
    case 'z':
      return std::to_string(integerAt({'u', sizeof(ox_zblock_t::size)}, data)) + " bytes";
    default:
      throw Refusal{OX_ERR_INVALIDARGUMENT,
                    "values of type " + type + " cannot be converted to a string"};
  }
}

int ox_getstr(const char* type, const void* data, char* buffer, size_t* size) {
  return call(__func__, {type}, [&]() -> int {
    require(type && data && size, "the type, the value or the size is null");
    const std::string string = valueString(type, data);
    const std::size_t room = std::exchange(*size, string.size() + 1);
    if (!buffer || room <= string.size()) return OX_ERR_BUFFERTOOSMALL;
    *size = room;
    std::memcpy(buffer, string.c_str(), string.size() + 1);
    return OX_ERR_OK;
  });
}

int ox_bcd_get(const void* value, int64_t* mantissa, int8_t* scale) {
  return call(__func__, {}, [&] {
    require(value && mantissa && scale, "the value or an out-parameter is null");
    const Decimal decimal = decimalAt(value);
    require(std::abs(decimal.scale) <= kMaxScale, "the decimal's scale is not between -18 and 18");
    *mantissa = decimal.mantissa;
    *scale = decimal.scale;
  });
}
