#include "test/native/support/new_faults.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int failIn = 0;
thread_local bool failed = false;
thread_local long live = 0;

}  // namespace

namespace oxli::test {

void failAllocationAt(int n) {
  failIn = n;
  failed = false;
}

bool disarmAllocations() {
  failIn = 0;
  return failed;
}

long liveAllocations() {
  return live;
}

}  // namespace oxli::test

void* operator new(std::size_t size) {
  if (failIn > 0 && --failIn == 0) {
    failed = true;
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size);
  if (!memory) throw std::bad_alloc();
  ++live;
  return memory;
}

void operator delete(void* memory) noexcept {
  if (memory) --live;
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}
