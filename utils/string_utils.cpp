#include "utils/string_utils.h"

#include <iconv.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace oxutils {

namespace {

class Converter {
 public:
  Converter(const char* to, const char* from) : descriptor_(iconv_open(to, from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (*this) iconv_close(descriptor_);
  }

  explicit operator bool() const { return descriptor_ != reinterpret_cast<iconv_t>(-1); }

  // Takes what is written off `outRoom`. False unless all of `in` was converted.
  bool convert(char* in, std::size_t inSize, char* out, std::size_t& outRoom) {
    return iconv(descriptor_, &in, &inSize, &out, &outRoom) != static_cast<std::size_t>(-1);
  }

 private:
  iconv_t descriptor_;
};

// `convert`: strtol or strtoul. What overflows it is above the limit as well.
template <class Convert>
int read(unsigned int& value, const char* text, int base, Convert convert) {
  char* end = nullptr;
  errno = 0;
  const auto number = static_cast<unsigned long>(convert(text, &end, base));
  if (number > UINT32_MAX) return 1;
  // EINVAL: there is no such base, and `end` says nothing.
  if (errno == EINVAL || end == text || *end != '\0') return 2;
  value = static_cast<unsigned int>(number);
  return 0;
}

}  // namespace

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

char* StringUtils::appendParamStr(const char* list, const char* param) {
  if (!param) return nullptr;
  const std::size_t paramSize = std::strlen(param) + 1;
  const std::size_t listSize = list ? std::strlen(list) + 1 : 0;
  char* const joined = new char[listSize + paramSize];
  if (list) {
    std::memcpy(joined, list, listSize);
    joined[listSize - 1] = ';';
  }
  std::memcpy(joined + listSize, param, paramSize);
  delete[] list;
  return joined;
}

std::string StringUtils::int2str(int value) {
  return std::to_string(value);
}

int StringUtils::str2int(unsigned int& value, const char* text, int base) {
  return read(value, text, base, std::strtol);
}

int StringUtils::str2uint32(unsigned int& value, const char* text, int base) {
  return read(value, text, base, std::strtoul);
}

std::string StringUtils::getOsVersion() {
  utsname os;
  if (uname(&os) != 0) return "Unknown OS";
  return std::string(os.sysname) + ' ' + os.release + ' ' + os.version + ' ' + os.machine;
}

std::string StringUtils::cp1251ToUtf8(char* text, unsigned long length) {
  constexpr std::size_t kMostBytes = 3;  // that a character of the code page becomes
  Converter converter("UTF8", "CP1251");
  if (!converter) return {};
  std::string converted;
  if (length > converted.max_size() / kMostBytes) throw std::bad_alloc();
  converted.resize(kMostBytes * length);
  std::size_t unused = converted.size();
  if (!converter.convert(text, length, converted.data(), unused)) return {};
  converted.resize(converted.size() - unused);
  return converted;
}

unsigned long str_to_ul(const std::string& text) {
  const bool binary = text.compare(0, 2, "0b") == 0 || text.compare(0, 2, "0B") == 0;
  return binary ? std::strtoul(text.c_str() + 2, nullptr, 2)
                : std::strtoul(text.c_str(), nullptr, 0);
}

}  // namespace oxutils
