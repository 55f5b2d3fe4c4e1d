#ifndef OXLI_TEST_SUPPORT_SETTINGS_TABLE_H
#define OXLI_TEST_SUPPORT_SETTINGS_TABLE_H

#include <string>

namespace oxli::test {

// Returns whether oxutils::Properties parses `settings` with the same result, pairs and error
// message as a second parser, which consists of a table of states and characters.
bool parserFollowsTable(const std::string& settings);

}  // namespace oxli::test

#endif  // OXLI_TEST_SUPPORT_SETTINGS_TABLE_H
