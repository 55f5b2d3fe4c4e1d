#include <vector>

#include "fuzz/fuzz.h"
#include "utils/base64.h"

using oxli::fuzz::require;
using oxutils::Base64;

// Decodes the input; then encodes the input and decodes the encoding. Buffers have exactly the size
// that the codec returns, so that the sanitizer notices every access past their ends.
int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const char* const input = reinterpret_cast<const char*>(bytes);

  std::vector<char> data(Base64::decode_len(input, size));
  require(data.size() <= size / 4 * 3);
  require(Base64::decode(input, size, data.data()) == (size % 4 == 0 ? data.size() : 0));

  std::vector<char> encoded(Base64::encode_len(input, size));
  require(encoded.size() == (size + 2) / 3 * 4);
  require(Base64::encode(input, size, encoded.data()) == encoded.size());

  data.resize(Base64::decode_len(encoded.data(), encoded.size()));
  data.shrink_to_fit();
  require(Base64::decode(encoded.data(), encoded.size(), data.data()) == size);
  require(data == std::vector<char>(input, input + size));

  Base64::base64_cleanup();  // releases the decoding table
  return 0;
}
