#ifndef OXLI_UTILS_PROPERTIES_H
#define OXLI_UTILS_PROPERTIES_H

#include <map>
#include <string>

#include "api.h"

namespace oxutils {

// A read-only dictionary of strings.
class OXUTILS_API IDictionary {
 public:
  virtual bool has(const std::string& key) const = 0;
  // Returns the value of the key. If the key is missing, returns an empty string, which exists
  // until the process ends.
  virtual const std::string& get(const std::string& key) const = 0;
  virtual ~IDictionary();
};

// Parses settings strings into a dictionary, sorted by the bytes of the keys:
//
//   host=gate1;password="a;b";scheme=?{name=quotes;fields=?{...}}
//
// ";" separates pairs. A value in double quotes may contain ";". A value may contain blocks
// "?{...}", which are not parsed: to parse a block, pass the characters between its braces to
// another Properties. In a value, a double quote after a backslash is part of the value, and the
// backslash is not. A backslash before any other character is part of the value; inside quotes and
// blocks, a ";" after a backslash is omitted. In keys a backslash has no special meaning. Blanks
// have no special meaning in keys and values.
//
// Not thread-safe: use an object on one thread at a time.
class OXUTILS_API Properties : public std::map<std::string, std::string>, public IDictionary {
 public:
  enum ParserState { Key, Escape, Value, Nested, Quoted };

  Properties();
  Properties(const Properties&);
  Properties(Properties&&) noexcept;
  Properties& operator=(const Properties&);
  Properties& operator=(Properties&&) noexcept;
  ~Properties() override;

  // Adds the pairs of `settings`, replacing the values of keys that exist. Returns false if the
  // string is malformed; well-formed pairs before and after a fault are added even then. A token
  // without "=" becomes the beginning of the next key: "a;b=1;c=2" adds `ab` and `c`. After a
  // failure, `lastError` contains the key and value that were not stored, if there are any, and
  // the string; it is cut after 16383 bytes. Throws std::bad_alloc if memory runs out.
  bool parse(const std::string& settings);

  bool has(const std::string& key) const override;
  const std::string& get(const std::string& key) const override;

  // The message of the latest parse that failed; a successful parse does not change it.
  std::string lastError;
};

}  // namespace oxutils

#endif  // OXLI_UTILS_PROPERTIES_H
