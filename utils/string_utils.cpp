#include "utils/string_utils.h"

#include <cstdio>

namespace oxutils {

std::string StringUtils::vformat(const char* format, va_list args) {
  char text[16384 + 1];
  text[0] = '\0';
  text[16384] = '\0';
  static_cast<void>(std::vsnprintf(text, 16384, format, args));
  return text;
}

std::string StringUtils::format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = vformat(format, args);
  va_end(args);
  return text;
}

}  // namespace oxutils
