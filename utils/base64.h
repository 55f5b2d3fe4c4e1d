#ifndef OXLI_UTILS_BASE64_H
#define OXLI_UTILS_BASE64_H

#include "api.h"

namespace oxutils {

// Encodes and decodes Base64 with the alphabet for URLs and file names, padded with "=", in one
// line and without a terminating zero. The caller provides the buffers, which must not overlap:
//
//   std::string encoded(Base64::encode_len(data, size), '\0');
//   Base64::encode(data, size, encoded.data());
//
// Thread-safe, except that no thread may decode while base64_cleanup runs.
class OXUTILS_API Base64 {
 public:
  Base64() = delete;

  // Returns the number of characters that encode writes. Does not read `data`. The number is exact
  // for lengths below 2^53.
  static unsigned long encode_len(const char* data, unsigned long length);
  // Returns the number of bytes that decode writes, if the length is a multiple of 4.
  static unsigned long decode_len(const char* encoded, unsigned long length);

  // Writes encode_len characters and returns their number.
  static unsigned long encode(const char* data, unsigned long length, char* out);
  // Writes decode_len bytes and returns their number. Returns 0 if the length is not a multiple of
  // 4, or if memory for the table runs out. Does not validate: a character outside the alphabet
  // counts as 0, as "=" does at any position.
  static unsigned long decode(const char* encoded, unsigned long length, char* out);

  // Makes `decoding_table` unless it exists. The first decode calls this.
  static void build_decoding_table();
  // Releases `decoding_table`. The next decode makes it again.
  static void base64_cleanup();

  static const char encoding_table[64];
  // The number of "=" at the end of an encoding, by the length of the data modulo 3.
  static const int mod_table[3];
  // The values of the 256 characters, 0 for those outside the alphabet. Null before
  // build_decoding_table and after base64_cleanup.
  static unsigned char* decoding_table;
};

}  // namespace oxutils

#endif  // OXLI_UTILS_BASE64_H
