#include "utils/properties.h"

#include <vector>

#include "utils/string_utils.h"

namespace oxutils {

// Defined here, so that every build of the library exports the same functions.
IDictionary::~IDictionary() = default;
Properties::Properties() = default;
Properties::Properties(const Properties&) = default;
Properties::Properties(Properties&&) noexcept = default;
Properties& Properties::operator=(const Properties&) = default;
Properties& Properties::operator=(Properties&&) noexcept = default;
Properties::~Properties() = default;

bool Properties::parse(const std::string& input) {
  // Copies the input, because it may be one of the values that are replaced below.
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
  const std::string settings = input;
  ParserState state = Key;
  std::vector<ParserState> enclosing;
  std::string key;
  std::string token;
  bool wellFormed = true;

  const auto enter = [&](ParserState inner) {
    enclosing.push_back(state);
    state = inner;
  };
  const auto leave = [&] {
    state = enclosing.back();
    enclosing.pop_back();
  };

  char previous = ';';
  for (std::size_t i = 0; i < settings.size(); ++i) {
    const char c = settings[i];
    const bool last = i + 1 == settings.size();
    const bool opensBlock = c == '{' && previous == '?';

    if (state == Escape) {
      if (c != '"') token += '\\';
      if (c != ';') token += c;
      leave();
    } else if (opensBlock) {
      enter(Nested);
      token += c;
    } else if (c == '\\' && !last && state != Key) {
      enter(Escape);
    } else if (state == Key && c == '=') {
      key.swap(token);
      token.clear();
      state = Value;
    } else if (state == Key && c == ';') {
      // The token is not cleared: its characters become the start of the next key.
      if (!token.empty()) wellFormed = false;
    } else if (state == Value && c == ';') {
      // The pair is complete; the code below stores it.
    } else if (state == Value && c == '"' && previous == '=') {
      enter(Quoted);
    } else if (state == Quoted && c == '"') {
      leave();
    } else {
      if (state == Nested && c == '}') leave();
      token += c;
    }

    if (state == Value && (c == ';' || last)) {
      (*this)[key] = token;
      key.clear();
      token.clear();
      state = Key;
    }
    previous = c;
  }

  if (wellFormed && key.empty() && token.empty() && enclosing.empty()) return true;
  lastError = StringUtils::format(
      enclosing.empty() ? "oxutils::Properties: Unable to parse parameters. %s = %s. The entire "
                          "string is '%s'."
                        : "oxutils::Properties: Unable to parse parameters. Syntax error near "
                          "substring %s=%s. The entire string is '%s'.",
      key.c_str(), token.c_str(), settings.c_str());
  return false;
}

bool Properties::has(const std::string& key) const {
  return find(key) != end();
}

const std::string& Properties::get(const std::string& key) const {
  static const std::string kMissing;
  const auto found = find(key);
  return found == end() ? kMissing : found->second;
}

}  // namespace oxutils
