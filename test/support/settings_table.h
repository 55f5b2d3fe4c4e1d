#ifndef OXLI_TEST_SUPPORT_SETTINGS_TABLE_H
#define OXLI_TEST_SUPPORT_SETTINGS_TABLE_H

#include <string>

namespace oxli::test {

// Returns whether oxutils::Properties parses `settings` as the grammar says, written down once more
// as a table of states and characters: with the same result, pairs and error message.
bool parserFollowsTable(const std::string& settings);

}  // namespace oxli::test

#endif  // OXLI_TEST_SUPPORT_SETTINGS_TABLE_H
