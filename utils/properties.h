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
  // Returns the value of the key, or an empty string that lives as long as the process if the key
  // is missing.
  virtual const std::string& get(const std::string& key) const = 0;
  virtual ~IDictionary();
};

// A settings string as a dictionary, in byte order of the keys:
//
//   host=gate1;password="a;b";scheme=?{name=quotes;fields=?{...}}
//
// Pairs are separated by ";". A value may be put in double quotes so that it can contain ";", and
// may contain blocks "?{...}", which stay unparsed: parse one by giving the characters between its
// braces to another Properties. A backslash escapes a double quote. Before any other character it
// stays in the value, and inside quotes and blocks a ";" after it is dropped. In keys it is an
// ordinary character, as blanks are everywhere.
//
// Not thread-safe: one object is for one thread at a time.
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
  // string is malformed: `lastError` names the remaining characters, and the pairs before the fault
  // have been added. Throws std::bad_alloc.
  bool parse(const std::string& settings);

  bool has(const std::string& key) const override;
  const std::string& get(const std::string& key) const override;

  // The message of the latest parse that failed. A later success leaves it.
  std::string lastError;
};

}  // namespace oxutils

#endif  // OXLI_UTILS_PROPERTIES_H
