#include "standin/settings.h"

#include <algorithm>

namespace standin {

void Settings::add(const std::string& string) {
  // If a ";" in a password is not encoded, the rest of the password is parsed as another pair.
  // Therefore the "@" is searched for in the entire string.
  const std::size_t server = string.find("server=");
  hasSecret_ |= place_.empty() && server != std::string::npos &&
                string.find('@', server) != std::string::npos;
  if (pairs_.parse(string)) return;
  if (hasSecret_) refuse("the settings string with the password is malformed");
  // The parser's message ends with the entire string.
  refuse(pairs_.lastError.substr(0, pairs_.lastError.find(". The entire string is")));
}

void Settings::add(const char* string) {
  if (!string) refuse("the settings string is null");
  add(std::string(string));
}

std::string Settings::extract(const std::string& key) {
  const auto node = pairs_.extract(key);
  return node ? std::move(node.mapped()) : std::string();
}

std::vector<std::string> Settings::extractList(const std::string& key, std::size_t limit) {
  std::vector<std::string> items;
  if (!has(key)) return items;
  const std::string list = extract(key);
  for (std::size_t begin = 0; begin <= list.size();) {
    const std::size_t end = std::min(list.find(',', begin), list.size());
    if (end == begin) refuse(key + " has an empty item");
    if (items.size() == limit) refuse(key + " has more than " + std::to_string(limit) + " items");
    items.push_back(list.substr(begin, end - begin));
    begin = end + 1;
  }
  return items;
}

std::string Settings::extractNested(const std::string& key) {
  std::string value = extract(key);
  const bool braced = value.size() > 2 && value.compare(0, 2, "?{") == 0 && value.back() == '}';
  return braced ? value.substr(2, value.size() - 3) : value;
}

void Settings::requireNoneLeft() const {
  if (!pairs_.empty()) refuse("unknown key " + pairs_.begin()->first);
}

void Settings::refuse(const std::string& what) const {
  throw Refusal{OX_ERR_INVALIDARGUMENT, at(what)};
}

}  // namespace standin
