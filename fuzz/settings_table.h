#ifndef OXLI_FUZZ_SETTINGS_TABLE_H
#define OXLI_FUZZ_SETTINGS_TABLE_H

#include <string>

namespace oxli::fuzz {

// Whether oxutils::Properties makes of `settings` what the grammar, written down once more as a
// table of states and characters, makes of it: result, pairs and message.
bool parserFollowsTable(const std::string& settings);

}  // namespace oxli::fuzz

#endif  // OXLI_FUZZ_SETTINGS_TABLE_H
