#include "loopback/settings.h"

#include <algorithm>
#include <utility>

namespace inproc {

Properties parse(const char* text, Properties under) {
  require(text && under.parse(text), OX_ERR_INVALIDARGUMENT);
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

std::vector<std::string> list(const Properties& settings, const std::string& key) {
  std::vector<std::string> items;
  if (!settings.has(key)) return items;
  const std::string& text = settings.get(key);
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    require(end > begin, OX_ERR_INVALIDARGUMENT);
    items.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return items;
}

}  // namespace inproc
