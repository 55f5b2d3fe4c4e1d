#ifndef OXLI_UTILS_PROPERTIES_H
#define OXLI_UTILS_PROPERTIES_H

#include <map>
#include <string>

#include "utils/api.h"

namespace oxutils {

// Read-only view of a dictionary of texts.
class OXUTILS_API IDictionary {
 public:
  virtual bool has(const std::string& key) const = 0;
  // The key's value; a lasting empty text when the key is missing.
  virtual const std::string& get(const std::string& key) const = 0;
  virtual ~IDictionary() = default;
};

// A settings text as a dictionary, in byte order of the keys:
//
//   host=gate1;password="a;b";scheme=?{name=quotes;fields=?{...}}
//
// Pairs are separated by ";". A value may be put in double quotes so that it can hold ";", and may
// hold blocks "?{...}", which stay unparsed: parse one by handing what is between its braces to
// another Properties. A backslash escapes a double quote; before any other character it stays
// itself, and inside quotes and blocks a ";" behind it is lost. In keys it means nothing. Blanks
// are ordinary characters.
//
// Not locked: one object is for one thread at a time.
class OXUTILS_API Properties : public std::map<std::string, std::string>, public IDictionary {
 public:
  Properties() = default;
  Properties(const Properties&) = default;
  Properties& operator=(const Properties&) = default;
  ~Properties() override;

  // Adds the pairs of `settings`; a key met again gets the later value. False when the text is
  // malformed: `lastError` shows what was left over, and the pairs that were complete have been
  // added all the same. REQUIRES: `settings` is none of this object's values.
  bool parse(const std::string& settings);

  bool has(const std::string& key) const override;
  const std::string& get(const std::string& key) const override;

  // Message of the latest parse that failed; a later success leaves it.
  std::string lastError;

 private:
  enum ParserState { Key, Escape, Value, Nested, Quoted };
};

}  // namespace oxutils

#endif  // OXLI_UTILS_PROPERTIES_H
