#ifndef OXLI_FUZZ_FUZZ_H
#define OXLI_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// What libFuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace oxli::fuzz {

// Ends the program, which libFuzzer reports with stack and input.
inline void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace oxli::fuzz

#endif  // OXLI_FUZZ_FUZZ_H
