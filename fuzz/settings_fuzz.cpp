#include <string>

#include "fuzz/fuzz.h"
#include "test/support/settings_table.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  oxli::fuzz::require(oxli::test::parserFollowsTable({bytes, bytes + size}));
  return 0;
}
