#include "test/support/settings_table.h"

#include <map>
#include <utility>

#include "utils/properties.h"

namespace oxli::test {

namespace {

using Pairs = std::map<std::string, std::string>;

enum State { kKey, kEscape, kValue, kNested, kQuoted };
enum Class { kEquals, kSemicolon, kOpens, kCloses, kQuoteAfterEquals, kQuote, kBackslash, kOther };

// The actions for a character, in order:
//   +  append the character to the token
//   /  append a backslash to the token
//   K  make the token the key and go to kValue
//   !  make the settings malformed if there is a token
//   E  N  Q  push the state and go to kEscape, kNested, kQuoted
//   <  pop the state
// clang-format off
constexpr const char* kActions[][8] = {
    //            =      ;     ?{     }      ="    "     \      other
    /* key    */ {"K",   "!",  "N+",  "+",   "+",  "+",  "+",   "+"},
    /* escape */ {"/+<", "/<", "/+<", "/+<", "+<", "+<", "/+<", "/+<"},
    /* value  */ {"+",   "",   "N+",  "+",   "Q",  "+",  "E",   "+"},
    /* nested */ {"+",   "+",  "N+",  "<+",  "+",  "+",  "E",   "+"},
    /* quoted */ {"+",   "+",  "N+",  "+",   "<",  "<",  "E",   "+"},
};
// clang-format on

Class classOf(char c, char previous, bool last) {
  if (c == '=') return kEquals;
  if (c == ';') return kSemicolon;
  if (c == '{' && previous == '?') return kOpens;
  if (c == '}') return kCloses;
  if (c == '"') return previous == '=' ? kQuoteAfterEquals : kQuote;
  return c == '\\' && !last ? kBackslash : kOther;
}

struct Machine {
  State state = kKey;
  std::string stack;
  std::string key, token;
  bool wellFormed = true;

  void act(char action, char c) {
    switch (action) {
      case '+':
        token.push_back(c);
        break;
      case '/':
        token.push_back('\\');
        break;
      case 'K':
        key = token;
        token = "";
        state = kValue;
        break;
      case '!':
        wellFormed = wellFormed && token.empty();
        break;
      case '<':
        state = static_cast<State>(stack.back());
        stack.pop_back();
        break;
      default:
        stack.push_back(static_cast<char>(state));
        state = action == 'E' ? kEscape : action == 'N' ? kNested : kQuoted;
    }
  }
};

// Returns the characters before the first zero byte, which are all that printf prints.
std::string printed(const std::string& string) {
  return string.substr(0, string.find('\0'));
}

// Returns the pairs and the error message, which is empty for well-formed settings.
std::pair<Pairs, std::string> parseByTable(const std::string& settings) {
  Machine machine;
  Pairs pairs;
  for (std::size_t i = 0; i < settings.size(); ++i) {
    const char c = settings[i];
    const bool last = i == settings.size() - 1;
    const Class cls = classOf(c, i == 0 ? ';' : settings[i - 1], last);
    for (const char* action = kActions[machine.state][cls]; *action; ++action) {
      machine.act(*action, c);
    }
    if (machine.state == kValue && (last || c == ';')) {
      pairs[machine.key] = machine.token;
      machine.key = machine.token = "";
      machine.state = kKey;
    }
  }

  const bool closed = machine.stack.empty();
  if (machine.wellFormed && closed && (machine.key + machine.token).empty()) {
    return {pairs, ""};
  }
  const std::string key = printed(machine.key), token = printed(machine.token);
  std::string message = "oxutils::Properties: Unable to parse parameters. ";
  message += closed ? key + " = " + token : "Syntax error near substring " + key + "=" + token;
  message += ". The entire string is '" + printed(settings) + "'.";
  return {pairs, message.substr(0, 16383)};
}

}  // namespace

bool parserFollowsTable(const std::string& settings) {
  oxutils::Properties properties;
  const auto& [pairs, message] = parseByTable(settings);
  return properties.parse(settings) == message.empty() &&
         static_cast<const Pairs&>(properties) == pairs && properties.lastError == message;
}

}  // namespace oxli::test
