#include "jni/oxjni.h"

#include <cstdint>
#include <deque>
#include <utility>

#include "jni/base/memory.h"
#include "jni/jenv/jenv.h"
#include "test/native/support/native_test.h"

namespace oxli::test {

namespace {

using jni::JEnv;

// The start of the converted scheme of SchemeTest, before its hints and fields.
constexpr char kHead[] = "scheme of type 4294967295, features 2147483649\n  message m, id 3\n";

class SchemeTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    jscheme = make("org/quendel/oxli/Scheme");
  }

  // Make the records that a conversion reads.
  ox_field_desc_t& addField(const char* type, std::size_t size) {
    ox_field_desc_t& field = fields.emplace_back();
    field.number = static_cast<std::uint32_t>(fields.size());
    field.name = field.desc = "f";
    field.type = type;
    field.size = size;
    if (fields.size() > 1) fields[fields.size() - 2].next = &field;
    message.fields = &fields.front();
    message.num_fields = field.number;
    return field;
  }
  void addValue(ox_field_desc_t& field, const void* integer) {
    ox_field_value_desc_t& value = values.emplace_back();
    value = {nullptr, "v", "", integer, integer};
    field.num_values = 1;
    field.values = &value;
  }

  // Converts the scheme. Returns it as a string, or "" if an exception is pending; `errors`
  // receives what was written on standard error.
  std::string converted() {
    errors = standardError([this] { createScheme(env, &scheme, jscheme); });
    return env->ExceptionCheck() ? "" : getString(jscheme, "toString");
  }

  // Returns the class of the exception of a conversion, if it leaves one, and what was written on
  // standard error.
  std::string failure() {
    converted();
    return clearException() + errors;
  }

  std::deque<ox_field_desc_t> fields;
  std::deque<ox_field_value_desc_t> values;
  ox_message_desc_t message = {nullptr, 0, 0, nullptr, 3, "m", "", nullptr, 0, nullptr};
  ox_scheme_desc_t scheme = {0xffffffff, 0x80000001, 1, &message};
  jobject jscheme = nullptr;
  std::string errors;
};

TEST_F(SchemeTest, IntegersOfNamedValuesAreSignExtended) {
  const std::uint8_t bits[] = {0xff, 0xff, 0, 0x80, 1, 2, 3, 0x84};
  const struct {
    const char* type;
    std::size_t size;
    const void* integer;
    const char* string;
  } cases[] = {
      {"u1", 1, bits, "-1, bytes 0xff"},
      {"u2", 2, bits, "-1, bytes 0xffff"},
      {"i4", 4, bits, "-2147418113, bytes 0xffff0080"},
      {"unsigned", 8, bits, "-8934295030307160065, bytes 0xffff008001020384"},
      {"i3", 3, bits, "-1, bytes 0xffff00"},
      {"d", 1, bits + 4, "-1, bytes 0x01"},
      {"", 1, bits + 4, "-1, bytes 0x01"},
      {nullptr, 1, bits + 4, "-1, bytes 0x01"},
      {"i1", 1, bits + 4, "1, bytes 0x01"},
      {"i1", 1, nullptr, "-1"},
  };
  std::string expected = kHead;
  for (const auto& c : cases) {
    ox_field_desc_t& field = addField(c.type, c.size);
    addValue(field, c.integer);
    expected += std::string("    field f (") + (c.type ? c.type : "null") + "), number " +
                std::to_string(field.number) + ", size " + std::to_string(c.size) +
                ", offset 0, null flag " + std::to_string(field.number - 1) +
                ": f\n      value v = " + c.string + '\n';
  }
  EXPECT_EQ(expected, converted());
  EXPECT_EQ("", errors);
  EXPECT_EQ(jni::toHandle(&scheme), getLong(jscheme, "getRef"));
}

TEST_F(SchemeTest, NestedMessagesIndexesAndHintsAreConverted) {
  ox_field_desc_t price = {};
  price = {nullptr, 0, "price", "", "d", 9, 0, nullptr, 0, nullptr, {}, nullptr};
  ox_message_desc_t leg = {nullptr, 9, 1, &price, 0xffffffff, "leg", "", nullptr, 0, nullptr};
  ox_field_desc_t& key = addField("c2", 2);
  key.value = "ab";
  key.offset = 5;
  addField("m", 9).msg = &leg;
  ox_hint_t second = {nullptr, "b", "2"};
  ox_hint_t first = {&second, "a", "1"};
  ox_index_field_desc_t nowhere = {nullptr, &price, 7};
  ox_index_field_desc_t member = {&nowhere, &key, -1};
  ox_index_desc_t index = {nullptr, 0xf00000002, &member, "pk", nullptr, &first};
  message.hints = &second;
  message.num_indices = 1;
  message.indices = &index;
  ox_message_desc_t empty = {nullptr, 0, 0, nullptr, 0, "e", "d", nullptr, 0, nullptr};
  message.next = &empty;
  scheme.num_messages = 2;
  EXPECT_EQ(std::string(kHead) +
                "    hint b = 2\n"
                "    field f (c2), number 1, size 2, offset 5, null flag 0, default 0x6162: f\n"
                "    field f (m), number 2, size 9, offset 0, null flag 1: f\n"
                "      message leg\n"
                "        field price (d), number 0, size 9, offset 0\n"
                "    index pk: null\n"
                "      hint a = 1\n"
                "      hint b = 2\n"
                "      field f (c2), number 1, size 2, offset 5, null flag 0, default 0x6162, "
                "parameter -1: f\n"
                "      field price (d), number 0, size 9, offset 0, parameter 7\n"
                "  message e, id 0: d\n",
            converted());
  EXPECT_EQ("", errors);
}

TEST_F(SchemeTest, ListsMayDifferFromTheirCounts) {
  addField("i1", 1);
  message.num_fields = 2;
  EXPECT_EQ(std::string(kHead) +
                "    field f (i1), number 1, size 1, offset 0, null flag 0: f\n    field missing\n",
            converted());

  const std::string overflow = "ArrayIndexOutOfBoundsException";
  const std::string end = lineOf("set message desc array element");
  message.num_fields = 0;
  EXPECT_EQ(overflow + lineOf("new index desc") + end, failure());

  ox_index_field_desc_t member = {nullptr, &fields.front(), 0};
  ox_index_desc_t index = {nullptr, 0, &member, "", "", nullptr};
  message.num_fields = 1;
  message.num_indices = 1;
  message.indices = &index;
  EXPECT_EQ(overflow + lineOf("set index field desc array element") + end, failure());

  scheme.num_messages = 0;
  index.num_fields = 1;
  EXPECT_EQ(overflow + end, failure());
  scheme.num_messages = 0xffffffff;
  EXPECT_EQ("NegativeArraySizeException" + lineOf("new message descs[]"), failure());
  scheme = {1, 2, 0, nullptr};
  EXPECT_EQ("scheme of type 1, features 2\n", converted());
}

TEST_F(SchemeTest, CircularListsAndDeepNestingFail) {
  const std::string end = lineOf("set message desc array element");
  ox_field_desc_t& field = addField("i1", 1);
  field.next = &field;
  EXPECT_EQ("ArrayIndexOutOfBoundsException" + lineOf("new index desc") + end, failure());
  field.next = nullptr;

  ox_hint_t hint = {nullptr, "a", "1"};
  ox_hint_t before = {&hint, "b", "2"};
  ox_hint_t beforeThat = {&before, "c", "3"};
  for (ox_hint_t* const last : {&hint, &before, &beforeThat}) {
    hint.next = last;
    message.hints = &beforeThat;
    EXPECT_EQ(lineOf("get hints[]") + end, failure());
  }
  message.hints = nullptr;

  field.value = "";
  field.size = 0x80000000;
  EXPECT_EQ(lineOf("new index desc") + end, failure());
  field.value = nullptr;

  const int kLevels = 256;
  std::deque<ox_message_desc_t> inner;
  std::deque<ox_field_desc_t> nesting;
  ox_message_desc_t* outer = &message;
  for (int level = 2; level <= kLevels; ++level) {
    inner.push_back({nullptr, 0, 0, nullptr, 0, "n", "", nullptr, 0, nullptr});
    nesting.push_back({});
    nesting.back().msg = &inner.back();
    outer->num_fields = 1;
    outer->fields = &nesting.back();
    outer = &inner.back();
  }
  const std::string deepest = std::string(2 * (2 * kLevels - 1), ' ') + "message n, id 0\n";
  EXPECT_NE(std::string::npos, converted().find(deepest));
  EXPECT_EQ("", errors);

  // Fails for one further level, and for a message that contains itself.
  ox_message_desc_t surplus = {nullptr, 0, 0, nullptr, 0, "n", "", nullptr, 0, nullptr};
  ox_field_desc_t last = {};
  outer->num_fields = 1;
  outer->fields = &last;
  for (ox_message_desc_t* const tooDeep : {&surplus, &message}) {
    last.msg = tooDeep;
    jscheme = make("org/quendel/oxli/Scheme");
    EXPECT_EQ("scheme of type 4294967295, features 2147483649\n", converted());
    EXPECT_EQ(0u, errors.find(lineOf("new message desc")));
    EXPECT_EQ(errors.size() - end.size(), errors.rfind(end));
  }
}

TEST_F(SchemeTest, ExportedFunctionsConvertParts) {
  ox_hint_t second = {nullptr, "b", nullptr};
  const ox_hint_t first = {&second, "a", "1"};
  const jobjectArray hints = getHints(env, &first);
  ASSERT_EQ(4, env->GetArrayLength(hints));
  EXPECT_EQ("b", toString(env, env->GetObjectArrayElement(hints, 2)));
  EXPECT_EQ("(null)", toString(env, env->GetObjectArrayElement(hints, 3)));
  EXPECT_EQ(0, env->GetArrayLength(getHints(env, nullptr)));

  const JEnv& cache = *JEnv::spInstance;
  const jobject field =
      create_field_desc(env, cache.fieldDesc.cls, cache.fieldDesc.ctor, cache.fieldValueDesc.cls,
                        cache.fieldValueDesc.ctor, &addField("i4", 4));
  EXPECT_EQ("i4", getString(field, "getType"));

  jobject made = jscheme;
  create_message_desc(env, &message, &made);
  EXPECT_EQ("MessageDesc", className(made));
  const jobject before = made;
  message.num_fields = 0;
  standardError([&] { create_message_desc(env, &message, &made); });
  EXPECT_EQ("ArrayIndexOutOfBoundsException", clearException());
  EXPECT_EQ(before, made);
  createScheme(env, nullptr, jscheme);
  createScheme(env, &scheme, nullptr);
  create_message_desc(env, nullptr, &made);
  create_message_desc(env, &message, nullptr);
  EXPECT_EQ(before, made);
}

}  // namespace

}  // namespace oxli::test
