#ifndef OXLI_UTILS_STRING_UTILS_H
#define OXLI_UTILS_STRING_UTILS_H

#include <cstdarg>
#include <string>

#include "api.h"

namespace oxutils {

// String functions without state. They are thread-safe and throw std::bad_alloc if memory runs out.
class OXUTILS_API StringUtils {
 public:
  StringUtils() = delete;

  // Formats like printf. Returns at most the first 16383 bytes of the result.
  static std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));
  static std::string vformat(const char* format, va_list args)
      __attribute__((format(printf, 1, 0)));

  // Returns "list;param", or a copy of `param` if `list` is null, as a new array that the caller
  // releases with delete[]. Releases `list`, which must come from new[]. Returns null if `param` is
  // null. Does not release `list` in that case, nor if memory runs out.
  static char* appendParamStr(const char* list, const char* param);

  // Returns the decimal digits of the value.
  static std::string int2str(int value);

  // Reads the whole of `string` as a number from 0 to 4294967295; white space and a sign may
  // precede it. Base 0 selects the base by the prefix 0x or 0. Returns
  //   0  after storing the number in `value`
  //   1  if the number is out of range
  //   2  if there is no number, if characters follow it, or if the base is invalid
  // str2uint32 reads a negative number modulo 2^64, which is out of range unless the number is
  // close to -2^64.
  static int str2int(unsigned int& value, const char* string, int base);
  static int str2uint32(unsigned int& value, const char* string, int base);

  // Returns name, release, version and machine of the operating system, separated by blanks, or
  // "Unknown OS".
  static std::string getOsVersion();

  // Converts `length` bytes of code page 1251, zero bytes included, to UTF-8. Returns an empty
  // string if a byte has no mapping, or if there is no converter. Does not write to `string`.
  static std::string cp1251ToUtf8(char* string, unsigned long length);
};

// Returns the number at the start of `string`: binary after 0b or 0B, otherwise in the base that
// the prefix 0x or 0 selects. Returns 0 if there is none. Thread-safe.
OXUTILS_API unsigned long str_to_ul(const std::string& string);

}  // namespace oxutils

#endif  // OXLI_UTILS_STRING_UTILS_H
