#include "loopback/values.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "loopback/call.h"

namespace inproc {
namespace {

constexpr std::size_t kDecimalSize = 9;
constexpr std::int8_t kMaxScale = 18;
constexpr std::size_t kMaxText = 65535;

struct Decimal {
  std::int64_t mantissa;
  std::int8_t scale;
};

Decimal decimalAt(const void* data) {
  Decimal value{};
  std::memcpy(&value.mantissa, data, sizeof value.mantissa);
  std::memcpy(&value.scale, static_cast<const char*>(data) + sizeof value.mantissa, 1);
  require(std::abs(value.scale) <= kMaxScale, OX_ERR_INVALIDARGUMENT);
  return value;
}

std::string textOf(Decimal value) {
  std::string digits = std::to_string(value.mantissa);
  const auto decimals = static_cast<std::size_t>(std::abs(value.scale));
  if (value.scale <= 0) return value.mantissa == 0 ? digits : digits.append(decimals, '0');
  const std::size_t sign = value.mantissa < 0 ? 1 : 0;
  if (digits.size() - sign <= decimals) {
    digits.insert(sign, decimals + 1 - (digits.size() - sign), '0');
  }
  return digits.insert(digits.size() - decimals, 1, '.');
}

}  // namespace

Type typeOf(const std::string& text) {
  const char kind = text.empty() ? '\0' : text.front();
  const std::string rest = text.empty() ? text : text.substr(1);
  if (rest.empty() && kind == 'z') return {kind, sizeof(ox_zblock_t)};
  if (rest.empty() && kind == 'm') return {kind, 0};
  if (kind == 'd') {
    const std::size_t point = rest.find('.');
    if (!rest.empty()) {
      toNumber<std::uint8_t>(rest.substr(0, point));
      toNumber<std::uint8_t>(point == std::string::npos ? "" : rest.substr(point + 1));
    }
    return {kind, kDecimalSize};
  }
  require(kind == 'i' || kind == 'u' || kind == 'c', OX_ERR_INVALIDARGUMENT);
  const auto size = toNumber<std::size_t>(rest);
  require(kind == 'c' ? size >= 1 && size <= kMaxText
                      : size == 1 || size == 2 || size == 4 || size == 8,
          OX_ERR_INVALIDARGUMENT);
  return {kind, size};
}

std::string render(Type type, const void* data) {
  if (type.kind == 'c') {
    const char* const text = static_cast<const char*>(data);
    return {text, std::find(text, text + type.size, '\0')};
  }
  if (type.kind == 'd') return textOf(decimalAt(data));
  if (type.kind == 'z') {
    ox_zblock_t block;
    std::memcpy(&block, data, sizeof block);
    return std::to_string(block.size) + " bytes";
  }
  return withInteger(type, [data](auto value) {
    std::memcpy(&value, data, sizeof value);
    return std::to_string(value);
  });
}

}  // namespace inproc

using namespace inproc;

int ox_getstr(const char* name, const void* data, char* buffer, size_t* size) {
  return call(__func__, {name}, [&] {
    require(name && data && size, OX_ERR_INVALIDARGUMENT);
    const std::string text = render(typeOf(name), data);
    const std::size_t needed = text.size() + 1;
    if (!buffer || *size < needed) {
      *size = needed;
      return OX_ERR_BUFFERTOOSMALL;
    }
    std::memcpy(buffer, text.c_str(), needed);
    return OX_ERR_OK;
  });
}

int ox_bcd_get(const void* value, int64_t* mantissa, int8_t* scale) {
  return call(__func__, {}, [&] {
    require(value && mantissa && scale, OX_ERR_INVALIDARGUMENT);
    const Decimal decimal = decimalAt(value);
    *mantissa = decimal.mantissa;
    *scale = decimal.scale;
    return OX_ERR_OK;
  });
}
