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
};

}  // namespace oxutils

#endif  // OXLI_UTILS_STRING_UTILS_H
