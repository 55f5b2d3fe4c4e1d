#ifndef OXLI_FUZZ_FUZZ_H
#define OXLI_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Checks one input. libFuzzer calls this function.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace oxli::fuzz {

// Aborts the program if the condition is false. libFuzzer then prints the stack and saves the
// input.
inline void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace oxli::fuzz

#endif  // OXLI_FUZZ_FUZZ_H
