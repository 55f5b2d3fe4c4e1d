#include "utils/base64.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <mutex>

namespace oxutils {

namespace {

std::mutex tableMutex;

unsigned char byteAt(const char* bytes, unsigned long position) {
  return static_cast<unsigned char>(bytes[position]);
}

}  // namespace

// The terminating zero of a string literal would not fit into the array.
const char Base64::encoding_table[64] = {
    'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P',
    'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f',
    'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v',
    'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '-', '_'};
const int Base64::mod_table[3] = {0, 2, 1};
unsigned char* Base64::decoding_table = nullptr;

unsigned long Base64::encode_len(const char* /*data*/, unsigned long length) {
  const double characters = std::ceil(static_cast<double>(length) / 3.0) * 4.0;
  // The conversion of such a large value is undefined.
  if (characters >= 0x1p64) return std::numeric_limits<unsigned long>::max();
  return static_cast<unsigned long>(characters);
}

unsigned long Base64::decode_len(const char* encoded, unsigned long length) {
  if (length < 4) return 0;
  unsigned long bytes = length / 4 * 3;
  if (encoded[length - 1] == '=') --bytes;
  if (encoded[length - 2] == '=') --bytes;
  return bytes;
}

unsigned long Base64::encode(const char* data, unsigned long length, char* out) {
  const unsigned long written = encode_len(data, length);
  char* next = out;
  for (unsigned long i = 0; i < length; i += 3) {
    std::uint32_t group = 0;
    for (unsigned long j = i; j < i + 3; ++j) {
      group = group << 8 | (j < length ? byteAt(data, j) : 0u);
    }
    for (int shift = 18; shift >= 0; shift -= 6) *next++ = encoding_table[group >> shift & 63u];
  }
  for (int i = 0; i < mod_table[length % 3]; ++i) *--next = '=';
  return written;
}

unsigned long Base64::decode(const char* encoded, unsigned long length, char* out) {
  const unsigned char* table = __atomic_load_n(&decoding_table, __ATOMIC_ACQUIRE);
  if (!table) {
    build_decoding_table();
    table = __atomic_load_n(&decoding_table, __ATOMIC_ACQUIRE);
  }
  if (!table || length % 4 != 0) return 0;

  const unsigned long size = decode_len(encoded, length);
  unsigned long written = 0;
  for (unsigned long i = 0; i < length; i += 4) {
    std::uint32_t group = 0;
    for (unsigned long j = i; j < i + 4; ++j) group = group << 6 | table[byteAt(encoded, j)];
    for (int shift = 16; shift >= 0 && written < size; shift -= 8) {
      out[written++] = static_cast<char>(group >> shift & 255u);
    }
  }
  return size;
}

void Base64::build_decoding_table() {
  const std::lock_guard<std::mutex> lock(tableMutex);
  if (decoding_table) return;
  auto* const table = static_cast<unsigned char*>(std::calloc(256, 1));
  if (!table) return;
  for (unsigned char i = 0; i < 64; ++i) table[byteAt(encoding_table, i)] = i;
  __atomic_store_n(&decoding_table, table, __ATOMIC_RELEASE);
}

void Base64::base64_cleanup() {
  const std::lock_guard<std::mutex> lock(tableMutex);
  std::free(__atomic_exchange_n(&decoding_table, nullptr, __ATOMIC_ACQ_REL));
}

}  // namespace oxutils
