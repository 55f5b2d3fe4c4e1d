#include "utils/base64.h"

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace oxli::test {

namespace {

using oxutils::Base64;

std::string encode(const std::string& data) {
  std::string encoded(Base64::encode_len(data.data(), data.size()) + 1, '#');
  const std::string more = data + "\xFF\xFF";
  EXPECT_EQ(encoded.size() - 1, Base64::encode(more.data(), data.size(), encoded.data()));
  EXPECT_EQ('#', encoded.back());
  encoded.pop_back();
  return encoded;
}

// Expects that decoding writes and returns `size` bytes, and no byte after them.
std::string decode(const std::string& encoded, std::size_t size) {
  std::string data(size + 4, '#');
  EXPECT_EQ(size, Base64::decode(encoded.data(), encoded.size(), data.data())) << encoded;
  EXPECT_EQ("####", data.substr(size)) << encoded;
  return data.substr(0, size);
}

TEST(Base64, EncodesAndDecodesKnownStrings) {
  struct {
    const char *data, *encoded;
  } const cases[] = {{"", ""},
                     {"f", "Zg=="},
                     {"fo", "Zm8="},
                     {"foo", "Zm9v"},
                     {"foob", "Zm9vYg=="},
                     {"fooba", "Zm9vYmE="},
                     {"foobar", "Zm9vYmFy"},
                     {"\xFB\xFF", "-_8="},
                     {"\xFB\xFF\xBF", "-_-_"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.encoded, encode(c.data));
    EXPECT_EQ(c.data, decode(c.encoded, std::strlen(c.data)));
  }
  const std::string all = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  EXPECT_EQ(all, std::string(Base64::encoding_table, 64));
  EXPECT_EQ(all, encode(decode(all, 48)));
}

TEST(Base64, DecodesMalformedStrings) {
  struct {
    const char* encoded;
    std::string data;
  } const cases[] = {{"Z", ""},
                     {"Zg", ""},
                     {"Zg=", ""},
                     {"Zm9v=", ""},
                     {"====", {'\0'}},
                     {"Zm=8", "f`"},
                     {"Z=9v", "d\x0Fo"},
                     {"+/+/", {'\0', '\0', '\0'}},
                     {"Zg==Zm9v", {'f', '\0', '\0', 'f', 'o', 'o'}}};
  for (const auto& c : cases) EXPECT_EQ(c.data, decode(c.encoded, c.data.size()));
}

TEST(Base64, ReturnsLengths) {
  struct {
    unsigned long data, encoded;
  } const cases[] = {{0, 0},
                     {1, 4},
                     {2, 4},
                     {3, 4},
                     {4, 8},
                     {3ul << 40, 4ul << 40},
                     {1ul << 60, 1537228672809129216ul},  // computed with a double
                     {~0ul, ~0ul}};
  for (const auto& c : cases) EXPECT_EQ(c.encoded, Base64::encode_len(nullptr, c.data));
  for (const unsigned long size : {0ul, 1ul, 2ul, 3ul})
    EXPECT_EQ(0u, Base64::decode_len("===", size));
}

TEST(Base64, DecodesEveryByte) {
  for (int c = 0; c < 256; ++c) {
    const char encoded[] = {static_cast<char>(c), 'A', 'A', 'A'};
    const void* const found = std::memchr(Base64::encoding_table, c, 64);
    const auto value = found ? static_cast<const char*>(found) - Base64::encoding_table : 0;
    EXPECT_EQ(value << 2, static_cast<unsigned char>(decode({encoded, 4}, 3)[0])) << c;
    EXPECT_EQ(value, Base64::decoding_table[c]) << c;
  }
}

TEST(Base64, MakesTheTableAgainAfterCleanup) {
  Base64::base64_cleanup();
  Base64::base64_cleanup();
  EXPECT_EQ(nullptr, Base64::decoding_table);
  EXPECT_EQ("foo", decode("Zm9v", 3));
  const unsigned char* const table = Base64::decoding_table;
  Base64::build_decoding_table();
  EXPECT_EQ(table, Base64::decoding_table);
}

TEST(Base64, ThreadsUseOneTable) {
  constexpr int kThreads = 4;
  for (int round = 0; round < 200; ++round) {
    Base64::base64_cleanup();
    std::atomic<int> waiting{kThreads};
    const unsigned char* seen[kThreads];
    std::vector<std::thread> threads;
    for (auto& table : seen) {
      threads.emplace_back([&] {
        --waiting;
        while (waiting > 0) std::this_thread::yield();
        EXPECT_EQ("foo", decode("Zm9v", 3));
        table = Base64::decoding_table;
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (const auto* table : seen) EXPECT_EQ(Base64::decoding_table, table);
  }
}

}  // namespace

}  // namespace oxli::test
