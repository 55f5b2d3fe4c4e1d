#include "utils/string_utils.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cerrno>

namespace {

using oxutils::StringUtils;

TEST(StringUtils, FormatTruncatesLongStrings) {
  EXPECT_EQ("7 = x", StringUtils::format("%d = %s", 7, "x"));
  const std::string longText(20000, 'x');
  EXPECT_EQ(std::string(16383, 'x'), StringUtils::format("%s", longText.c_str()));
}

TEST(StringUtils, AppendParamStrOwnsAndFreesTheList) {
  char* list = StringUtils::appendParamStr(nullptr, "a");
  EXPECT_STREQ("a", list);
  EXPECT_EQ(nullptr, StringUtils::appendParamStr(list, nullptr));
  list = StringUtils::appendParamStr(list, "b");
  EXPECT_STREQ("a;b", list);
  list = StringUtils::appendParamStr(list, "");
  EXPECT_STREQ("a;b;", list);
  delete[] list;
}

TEST(StringUtils, WritesIntegers) {
  EXPECT_EQ("0", StringUtils::int2str(0));
  EXPECT_EQ("-2147483648", StringUtils::int2str(-2147483647 - 1));
}

TEST(StringUtils, ReadsIntegers) {
  constexpr unsigned kUntouched = 77;
  struct {
    const char* string;
    int base;
    int asInt, asUint32;  // results
    unsigned value;
  } const cases[] = {
      {"42", 10, 0, 0, 42},
      {" 12", 10, 0, 0, 12},
      {"+7", 10, 0, 0, 7},
      {"0", 10, 0, 0, 0},
      {"-0", 10, 0, 0, 0},
      {"4294967295", 10, 0, 0, 4294967295u},
      {"0x1f", 16, 0, 0, 31},
      {"0x1f", 0, 0, 0, 31},
      {"017", 0, 0, 0, 15},
      {"-1", 10, 1, 1, kUntouched},
      {"4294967296", 10, 1, 1, kUntouched},
      {"9223372036854775808", 10, 1, 1, kUntouched},
      {"18446744073709551616", 10, 1, 1, kUntouched},
      {"-9223372036854775809", 10, 1, 1, kUntouched},
      {"-18446744073709551615", 10, 1, 0, 1},
      {"4294967296x", 10, 1, 1, kUntouched},
      {"", 10, 2, 2, kUntouched},
      {" ", 10, 2, 2, kUntouched},
      {"12 ", 10, 2, 2, kUntouched},
      {"12x", 10, 2, 2, kUntouched},
      {"x", 10, 2, 2, kUntouched},
      {"0x1f", 10, 2, 2, kUntouched},
      {"1", 1, 2, 2, kUntouched},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.string);
    unsigned value = kUntouched;
    errno = EINVAL;  // an error of an earlier call must have no effect
    EXPECT_EQ(c.asInt, StringUtils::str2int(value, c.string, c.base));
    EXPECT_EQ(c.asInt == 0 ? c.value : kUntouched, value);
    value = kUntouched;
    EXPECT_EQ(c.asUint32, StringUtils::str2uint32(value, c.string, c.base));
    EXPECT_EQ(c.asUint32 == 0 ? c.value : kUntouched, value);
  }
}

TEST(StringUtils, ReadsBinaryDecimalAndHexadecimal) {
  struct {
    const char* string;
    unsigned long value;
  } const cases[] = {{"0b101", 5}, {"0B11", 3},  {"0x1F", 31}, {"017", 15},
                     {"19", 19},   {"0b", 0},    {"abc", 0},   {"", 0},
                     {"0b12", 1},  {"12ab", 12}, {"0b2", 0},   {"18446744073709551615", ~0ul}};
  for (const auto& c : cases) EXPECT_EQ(c.value, oxutils::str_to_ul(c.string)) << c.string;
}

TEST(StringUtils, ReturnsTheVersionOfTheSystem) {
  utsname os;
  ASSERT_EQ(0, uname(&os));
  EXPECT_EQ(StringUtils::format("%s %s %s %s", os.sysname, os.release, os.version, os.machine),
            StringUtils::getOsVersion());
}

TEST(StringUtils, ConvertsCodePage1251) {
  struct {
    std::string in, out;
  } const cases[] = {
      {"", ""},
      {"A\xC0", "A\xD0\x90"},
      {std::string("a\0b\0", 4), std::string("a\0b\0", 4)},
      {"\xCF\xF0\xE8\xE2\xE5\xF2", "Привет"},
      {"\x88\x88\x85", "€€…"},
      {"a\x98", ""},  // not in the code page
  };
  for (const auto& c : cases) {
    std::string in = c.in;
    EXPECT_EQ(c.out, StringUtils::cp1251ToUtf8(in.data(), in.size()));
    EXPECT_EQ(c.in, in);
  }
}

TEST(StringUtils, ConversionAllocatesExactlyAndLimitsTheLength) {
  std::string longText(1000, 'x');
  EXPECT_EQ(1000u, StringUtils::cp1251ToUtf8(longText.data(), longText.size()).capacity());
  char in[] = "x";
  EXPECT_THROW(StringUtils::cp1251ToUtf8(in, ~0ul / 3 + 2), std::bad_alloc);
}

}  // namespace
