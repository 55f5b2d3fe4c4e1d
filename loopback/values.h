#ifndef OXLI_LOOPBACK_VALUES_H
#define OXLI_LOOPBACK_VALUES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "loopback/settings.h"

namespace inproc {

// What a type text says: i and u with 1, 2, 4 or 8 bytes, cN fixed text of N bytes, d or dM.S
// decimal, z descriptor of a block outside the payload, m nested message.
struct Type {
  char kind;
  std::size_t size;  // 0 for m
};

Type typeOf(const std::string& text);
std::string render(Type type, const void* data);

// Calls `use` with a zero of the C++ type of an integer field.
template <class Use>
auto withInteger(Type type, Use&& use) {
  const bool isSigned = type.kind == 'i';
  require(isSigned || type.kind == 'u', OX_ERR_INVALIDARGUMENT);
  switch (type.size) {
    case 1:
      return isSigned ? use(std::int8_t{}) : use(std::uint8_t{});
    case 2:
      return isSigned ? use(std::int16_t{}) : use(std::uint16_t{});
    case 4:
      return isSigned ? use(std::int32_t{}) : use(std::uint32_t{});
    default:
      return isSigned ? use(std::int64_t{}) : use(std::uint64_t{});
  }
}

}  // namespace inproc

#endif  // OXLI_LOOPBACK_VALUES_H
