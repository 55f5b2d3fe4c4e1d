#ifndef OXLI_UTILS_STRING_UTILS_H
#define OXLI_UTILS_STRING_UTILS_H

#include <cstdarg>
#include <string>

#include "utils/api.h"

namespace oxutils {

// Stateless text functions; any thread may call them. Allocation failure leaves as std::bad_alloc.
class OXUTILS_API StringUtils {
 public:
  StringUtils() = delete;

  // printf into a string. Text beyond the first 16383 bytes is cut.
  static std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));
  static std::string vformat(const char* format, va_list args)
      __attribute__((format(printf, 1, 0)));

  // "list;param" as a new array that the caller releases with delete[]; without a list just
  // "param". Takes over `list`, which must come from new[], and releases it. Without a param null,
  // and then, as when memory runs out, the list stays the caller's.
  static char* appendParamStr(const char* list, const char* param);

  static std::string int2str(int value);

  // The whole of `text` as a number of 0 to 4294967295, with white space before it and a sign
  // allowed; base 0: as its prefix 0x or 0 says. The result is
  //   0  `value` is the number
  //   1  the number is out of range
  //   2  there is no number, or something behind it
  // str2uint32 wraps a negative number modulo 2^64, so that it is out of range, unless it is close
  // to -2^64.
  static int str2int(unsigned int& value, const char* text, int base);
  static int str2uint32(unsigned int& value, const char* text, int base);

  // System name, release, version and machine, with a blank between each; "Unknown OS" when the
  // system does not say.
  static std::string getOsVersion();

  // `length` bytes in code page 1251 as UTF-8, zero bytes included. Empty when there is a byte that
  // the code page does not have, or no converter. `text` is only read.
  static std::string cp1251ToUtf8(char* text, unsigned long length);
};

// The number at the start of `text`: binary behind 0b or 0B, otherwise as its prefix 0x or 0 says.
// What cannot be read gives 0. Any thread may call it.
OXUTILS_API unsigned long str_to_ul(const std::string& text);

}  // namespace oxutils

#endif  // OXLI_UTILS_STRING_UTILS_H
