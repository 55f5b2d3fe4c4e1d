#include "utils/properties.h"

#include <gtest/gtest.h>

#include <random>

#include "test/support/settings_table.h"

namespace {

using oxutils::Properties;
using Pairs = std::map<std::string, std::string>;

struct Case {
  const char* settings;
  Pairs pairs;
  const char* error;  // null: well formed
};

#define UNABLE "oxutils::Properties: Unable to parse parameters. "

const Case kCases[] = {
    {"b=2;a=1", {{"a", "1"}, {"b", "2"}}, nullptr},
    {"a=1;a=2", {{"a", "2"}}, nullptr},
    {";;a=1;;", {{"a", "1"}}, nullptr},
    {"a = b", {{"a ", " b"}}, nullptr},
    {"a=?{b=1;c=2}", {{"a", "?{b=1;c=2}"}}, nullptr},
    {"a=\"x;y\";b=2", {{"a", "x;y"}, {"b", "2"}}, nullptr},
    {"a=b\"c\"", {{"a", "b\"c\""}}, nullptr},
    {R"(a=d:\logs\;b=2)", {{"a", R"(d:\logs\)"}, {"b", "2"}}, nullptr},
    {R"(a=\"q\")", {{"a", "\"q\""}}, nullptr},
    {R"(a=\n)", {{"a", R"(\n)"}}, nullptr},
    {"?{a;b=c}=v", {{"?{a;b=c}", "v"}}, nullptr},
    {"a=1;b", {{"a", "1"}}, UNABLE " = b. The entire string is 'a=1;b'."},
    {"abc;x=1", {{"abcx", "1"}}, UNABLE " = . The entire string is 'abc;x=1'."},
    {"a=?{b", {}, UNABLE "Syntax error near substring a=?{b. The entire string is 'a=?{b'."},
    {"a=\"b;", {}, UNABLE "Syntax error near substring a=b;. The entire string is 'a=\"b;'."},
};

TEST(Properties, ParsesTheGrammar) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.settings);
    Properties properties;
    EXPECT_EQ(c.error == nullptr, properties.parse(c.settings));
    EXPECT_EQ(c.pairs, static_cast<const Pairs&>(properties));
    EXPECT_EQ(c.error ? c.error : "", properties.lastError);
  }
}

TEST(Properties, ParseAddsPairsAndRetainsTheLatestError) {
  Properties properties;
  EXPECT_FALSE(properties.parse("a=1;b"));
  const std::string error = properties.lastError;
  EXPECT_TRUE(properties.parse("c=3"));
  EXPECT_EQ((Pairs{{"a", "1"}, {"c", "3"}}), static_cast<const Pairs&>(properties));
  EXPECT_EQ(error, properties.lastError);
}

TEST(Properties, ParsesItsOwnValuesAndCanBeMoved) {
  static_assert(Properties::Quoted == 4);
  Properties properties;
  // The first pair of the parsed value replaces this value.
  ASSERT_TRUE(properties.parse("a=\"a=first;b=a second value that no short string holds\""));
  ASSERT_TRUE(properties.parse(properties.get("a")));
  const Pairs expected = {{"a", "first"}, {"b", "a second value that no short string holds"}};
  EXPECT_EQ(expected, static_cast<const Pairs&>(properties));
  const char* const memory = properties.get("b").data();
  const Properties moved = std::move(properties);
  EXPECT_EQ(expected, static_cast<const Pairs&>(moved));
  EXPECT_EQ(memory, moved.get("b").data());
}

TEST(Properties, ImplementsIDictionary) {
  Properties properties;
  ASSERT_TRUE(properties.parse("a="));
  const oxutils::IDictionary& dictionary = properties;
  EXPECT_TRUE(dictionary.has("a"));
  EXPECT_FALSE(dictionary.has("A"));
  EXPECT_EQ("", dictionary.get("a"));
  EXPECT_EQ(&dictionary.get("A"), &dictionary.get("B"));
}

TEST(Properties, AgreesWithTheTableOfTheGrammar) {
  constexpr char kCharacters[] = R"(=;?{}"\ab)";
  std::mt19937 random(1);
  for (int i = 0; i < 200000; ++i) {
    std::string settings(random() % 24, '\0');
    for (char& c : settings) c = kCharacters[random() % (sizeof kCharacters - 1)];
    ASSERT_TRUE(oxli::test::parserFollowsTable(settings)) << settings;
  }
}

}  // namespace
