#include <vector>

#include "fuzz/fuzz.h"
#include "utils/base64.h"

using oxli::fuzz::require;
using oxutils::Base64;

// The bytes as a text that somebody else wrote, then as data. Buffers have exactly the size that is
// said to be needed: the sanitizer guards their ends, and those of the input.
int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const char* const input = reinterpret_cast<const char*>(bytes);

  std::vector<char> data(Base64::decode_len(input, size));
  require(data.size() <= size / 4 * 3);
  require(Base64::decode(input, size, data.data()) == (size % 4 == 0 ? data.size() : 0));

  std::vector<char> text(Base64::encode_len(input, size));
  require(text.size() == (size + 2) / 3 * 4);
  require(Base64::encode(input, size, text.data()) == text.size());

  data.resize(Base64::decode_len(text.data(), text.size()));
  data.shrink_to_fit();
  require(Base64::decode(text.data(), text.size(), data.data()) == size);
  require(data == std::vector<char>(input, input + size));

  Base64::base64_cleanup();  // nothing may leak
  return 0;
}
