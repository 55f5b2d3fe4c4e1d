#include "utils/string_utils.h"

#include <iconv.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

// Headers of glibc 2.38 and later redirect strtol and strtoul to versions that also read the prefix
// "0b". This redirects them to the earlier versions, which older systems have, too.
#if defined(__x86_64__) && defined(__GLIBC__)
__asm__(".symver __isoc23_strtol, strtol@GLIBC_2.2.5");
__asm__(".symver __isoc23_strtoul, strtoul@GLIBC_2.2.5");
#endif

namespace oxutils {

namespace {

class Converter {
 public:
  Converter(const char* target, const char* source) : descriptor_(iconv_open(target, source)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (*this) iconv_close(descriptor_);
  }

  explicit operator bool() const { return descriptor_ != reinterpret_cast<iconv_t>(-1); }

  // Subtracts the number of bytes written from `outSize`. Returns false unless all of `in` is
  // converted.
  bool convert(char* in, std::size_t inSize, char* out, std::size_t& outSize) {
    return iconv(descriptor_, &in, &inSize, &out, &outSize) != static_cast<std::size_t>(-1);
  }

 private:
  iconv_t descriptor_;
};

// `convert` is strtol or strtoul. Their results on overflow are out of range, too.
template <class Convert>
int read(unsigned int& value, const char* string, int base, Convert convert) {
  char* end = nullptr;
  errno = 0;
  const auto number = static_cast<unsigned long>(convert(string, &end, base));
  if (number > UINT32_MAX) return 1;
  // After EINVAL, which reports an invalid base, `end` has no meaning.
  if (errno == EINVAL || end == string || *end != '\0') return 2;
  value = static_cast<unsigned int>(number);
  return 0;
}

}  // namespace

std::string StringUtils::vformat(const char* format, va_list args) {
  char buffer[16384 + 1];
  buffer[0] = '\0';
  buffer[16384] = '\0';
  static_cast<void>(std::vsnprintf(buffer, 16384, format, args));
  return buffer;
}

std::string StringUtils::format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string formatted = vformat(format, args);
  va_end(args);
  return formatted;
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

int StringUtils::str2int(unsigned int& value, const char* string, int base) {
  return read(value, string, base, std::strtol);
}

int StringUtils::str2uint32(unsigned int& value, const char* string, int base) {
  return read(value, string, base, std::strtoul);
}

std::string StringUtils::getOsVersion() {
  utsname os;
  if (uname(&os) != 0) return "Unknown OS";
  return std::string(os.sysname) + ' ' + os.release + ' ' + os.version + ' ' + os.machine;
}

std::string StringUtils::cp1251ToUtf8(char* string, unsigned long length) {
  // A character of the code page takes at most 3 bytes in UTF-8.
  constexpr std::size_t kMaxBytes = 3;
  Converter converter("UTF8", "CP1251");
  if (!converter) return {};
  std::string buffer;
  if (length > buffer.max_size() / kMaxBytes) throw std::bad_alloc();
  buffer.resize(kMaxBytes * length);
  std::size_t unused = buffer.size();
  if (!converter.convert(string, length, buffer.data(), unused)) return {};
  // Copies the result, because the buffer is larger.
  return buffer.substr(0, buffer.size() - unused);
}

unsigned long str_to_ul(const std::string& string) {
  const bool binary = string.compare(0, 2, "0b") == 0 || string.compare(0, 2, "0B") == 0;
  return binary ? std::strtoul(string.c_str() + 2, nullptr, 2)
                : std::strtoul(string.c_str(), nullptr, 0);
}

}  // namespace oxutils
