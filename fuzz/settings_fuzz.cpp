#include <string>

#include "fuzz/fuzz.h"
#include "fuzz/settings_table.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  oxli::fuzz::require(oxli::fuzz::parserFollowsTable({bytes, bytes + size}));
  return 0;
}
