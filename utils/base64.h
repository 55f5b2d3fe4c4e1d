#ifndef OXLI_UTILS_BASE64_H
#define OXLI_UTILS_BASE64_H

#include "utils/api.h"

namespace oxutils {

// Base64 in the alphabet that is safe in URLs and file names, always padded with "=", in one line
// and without a terminating zero. Buffers are the caller's and must not overlap:
//
//   std::string text(Base64::encode_len(data, size), '\0');
//   Base64::encode(data, size, text.data());
//
// Any thread may call everything here at any time, except that nothing may decode while
// base64_cleanup runs.
class OXUTILS_API Base64 {
 public:
  Base64() = delete;

  // The size of what encode writes. `data` is not read. Exact below 2^53.
  static unsigned long encode_len(const char* data, unsigned long length);
  // The size of what decode writes for a text whose length is a multiple of 4.
  static unsigned long decode_len(const char* text, unsigned long length);

  // Writes encode_len characters and returns their number.
  static unsigned long encode(const char* data, unsigned long length, char* out);
  // Writes decode_len bytes and returns their number. 0 when the length is not a multiple of 4 or
  // memory for the table runs out. The text is trusted: a character that is not of the alphabet
  // counts as 0, as "=" does wherever it stands.
  static unsigned long decode(const char* text, unsigned long length, char* out);

  // Makes `decoding_table`, as the first decode does by itself. Nothing when there is one.
  static void build_decoding_table();
  // Releases it; the next decode makes it again.
  static void base64_cleanup();

  static const char encoding_table[64];
  // How many "=" end a text, by the data's length modulo 3.
  static const int mod_table[3];
  // 256 values by character, 0 outside the alphabet; null until it is made. Complete when seen.
  static unsigned char* decoding_table;
};

}  // namespace oxutils

#endif  // OXLI_UTILS_BASE64_H
