#include "test/native/support/new_faults.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int failIn = 0;
thread_local bool fired = false;

}  // namespace

namespace oxli::test {

void failAllocationAt(int n) {
  failIn = n;
  fired = false;
}

bool disarmAllocations() {
  failIn = 0;
  return fired;
}

}  // namespace oxli::test

void* operator new(std::size_t size) {
  if (failIn > 0 && --failIn == 0) {
    fired = true;
    throw std::bad_alloc();
  }
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
