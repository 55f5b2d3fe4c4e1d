#ifndef OXLI_LOOPBACK_SETTINGS_H
#define OXLI_LOOPBACK_SETTINGS_H

#include <charconv>
#include <string>
#include <system_error>
#include <vector>

#include "oxli.h"
#include "utils/properties.h"

namespace inproc {

using oxutils::Properties;

// Why an ox_ function does nothing: thrown where it is found out, made a result code by call().
struct Refused {
  int code;
};

inline void require(bool condition, int code) {
  if (!condition) throw Refused{code};
}

// The readers below refuse malformed text, a null one included, with OX_ERR_INVALIDARGUMENT.

// The pairs of `text` over those of `under`.
Properties parse(const char* text, Properties under = {});
// What a nested settings text, "?{...}" or quoted, holds.
std::string blockText(const Properties& settings, const std::string& key);
// Its pairs; without the key: none.
Properties block(const Properties& settings, const std::string& key);
// The items of a comma-separated list, none of them empty.
std::vector<std::string> list(const Properties& settings, const std::string& key);

template <class T>
T toNumber(const std::string& text) {
  T value{};
  const char* const end = text.data() + text.size();
  const std::from_chars_result read = std::from_chars(text.data(), end, value);
  require(read.ec == std::errc() && read.ptr == end, OX_ERR_INVALIDARGUMENT);
  return value;
}

template <class T>
T number(const Properties& settings, const std::string& key, T fallback) {
  return settings.has(key) ? toNumber<T>(settings.get(key)) : fallback;
}

}  // namespace inproc

#endif  // OXLI_LOOPBACK_SETTINGS_H
