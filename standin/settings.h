// Settings strings, and refusals that name what is wrong with one.
#ifndef OXLI_STANDIN_SETTINGS_H
#define OXLI_STANDIN_SETTINGS_H

#include <charconv>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "oxli.h"
#include "utils/properties.h"

namespace standin {

// Thrown to end an ox_ function with a result code. The reason is logged.
struct Refusal {
  int code;
  std::string reason;
};

inline void require(bool condition, const char* reason, int code = OX_ERR_INVALIDARGUMENT) {
  if (!condition) throw Refusal{code, reason};
}

// The whole of `string` as a number; empty if it is not one, or out of range.
template <class T>
std::optional<T> toNumber(const std::string& string) {
  T value{};
  const char* const end = string.data() + string.size();
  const std::from_chars_result read = std::from_chars(string.data(), end, value);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return value;
}

// The pairs of settings strings. Reading a pair extracts it, so that only unknown keys are left at
// the end. Refusals have the code OX_ERR_INVALIDARGUMENT, and name the place and the key.
class Settings {
 public:
  Settings() = default;
  // `place` is the key that the string is the value of; empty for the settings of an object.
  Settings(std::string place, const std::string& string) : place_(std::move(place)) { add(string); }

  // Adds the pairs of `string`; they replace those with the same keys.
  void add(const std::string& string);
  void add(const char* string);  // refuses null

  bool has(const std::string& key) const { return pairs_.has(key); }
  // Empty if the key is missing.
  std::string extract(const std::string& key);
  // The items of a comma-separated list. Refuses empty items, and more than `limit`.
  std::vector<std::string> extractList(const std::string& key, std::size_t limit);
  // A nested settings string, without the braces of "?{...}"; empty if the key is missing.
  std::string extractNested(const std::string& key);
  Settings extractBlock(const std::string& key) { return {at(key), extractNested(key)}; }
  template <class T>
  T extractNumber(const std::string& key, T fallback) {
    if (!has(key)) return fallback;
    const std::string value = extract(key);
    const std::optional<T> number = toNumber<T>(value);
    if (!number) refuse(key + (hasSecret_ ? "" : '=' + value) + " is not a number in range");
    return *number;
  }

  const std::map<std::string, std::string>& left() const { return pairs_; }
  // Whether keys and values may be parts of a password, which no log line may contain.
  bool hasSecret() const { return hasSecret_; }
  void requireNoneLeft() const;
  [[noreturn]] void refuse(const std::string& what) const;

 private:
  std::string at(const std::string& what) const {
    return place_.empty() ? what : place_ + ": " + what;
  }

  std::string place_;
  bool hasSecret_ = false;
  oxutils::Properties pairs_;
};

}  // namespace standin

#endif  // OXLI_STANDIN_SETTINGS_H
