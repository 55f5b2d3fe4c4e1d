#include <cstring>

#include "test/native/support/native_test.h"

namespace oxli::test {

namespace {

// Calls natives that need no open environment.
class PassthroughTest : public NativeTest {
 protected:
  jobject buffer(void* bytes, jlong size) const { return env->NewDirectByteBuffer(bytes, size); }
  std::string getstr(const char* type, void* bytes, jlong size) const {
    return toString(env, OXLI(getstr)(env, nullptr, string(type), buffer(bytes, size)));
  }
  std::string decimal(void* bytes) const {
    const jobject value = OXLI(bcd_1get)(env, nullptr, buffer(bytes, 9));
    return value ? getString(value, "toPlainString") : "(null)";
  }
};

TEST_F(PassthroughTest, GetstrEnlargesItsBufferOnce) {
  std::int32_t number = -7;
  EXPECT_EQ("-7", getstr("i4", &number, 4));
  EXPECT_EQ(1u, standin::calls().size());
  EXPECT_EQ("249", getstr("u1", &number, 1));
  char padded[] = "ab\0d";
  EXPECT_EQ("ab", getstr("c4", padded, 4));
  char cents[] = "\x85\xFF\xFF\xFF\xFF\xFF\xFF\xFF\2";
  EXPECT_EQ("-1.23", getstr("d", cents, 9));
  cents[8] = 3;
  EXPECT_EQ("-0.123", getstr("d", cents, 9));

  std::string longText(3000, 'x');
  standin::clearCalls();
  EXPECT_EQ(longText, getstr("c3000", longText.data(), 3000));
  EXPECT_EQ(2u, standin::calls().size());

  standin::clearCalls();
  standin::failNext("ox_getstr", OX_ERR_BUFFERTOOSMALL);
  EXPECT_EQ("(null)", getstr("c3000", longText.data(), 3000));
  EXPECT_EQ(2u, standin::calls().size());
  EXPECT_EQ("(null)", getstr("no such type", &number, 4));
  EXPECT_EQ(nullptr, OXLI(getstr)(env, nullptr, string("i4"), nullptr));
}

TEST_F(PassthroughTest, LogLinesAreNotUsedAsFormats) {
  EXPECT_EQ(OX_ERR_OK, OXLI(log_1errorstr)(env, nullptr, string("100%s")));
  EXPECT_NE(std::string::npos, standin::logLines().at(0).find("100%s"));
}

TEST_F(PassthroughTest, ErrorCodesHaveStrings) {
  EXPECT_NE(std::string::npos, toString(env, OXLI(err_1getstr)(env, nullptr, OX_ERR_INVALIDSTATE))
                                   .find("OX_ERR_INVALIDSTATE"));
}

TEST_F(PassthroughTest, ScalesOfDecimalsAreSigned) {
  struct {
    std::int64_t mantissa;
    std::int8_t scale;
    const char* string;
  } cases[] = {{5, 1, "0.5"}, {5, -1, "50"}, {-12345, 2, "-123.45"}, {0, 0, "0"}};
  for (const auto& c : cases) {
    unsigned char bytes[9];
    std::memcpy(bytes, &c.mantissa, 8);
    std::memcpy(bytes + 8, &c.scale, 1);
    EXPECT_EQ(c.string, decimal(bytes));
  }
  unsigned char bad[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0x7f};
  EXPECT_EQ("", standardError([&] { EXPECT_EQ("(null)", decimal(bad)); }));
}

TEST_F(PassthroughTest, SchemeGetstrIsNotImplemented) {
  EXPECT_EQ(nullptr, OXLI(scheme_1getstr)(env, nullptr));
  const jthrowable pending = env->ExceptionOccurred();
  env->ExceptionClear();
  EXPECT_EQ("OxliException", className(pending));
  EXPECT_EQ("Not implemented.", getString(pending, "getMessage"));
}

}  // namespace

}  // namespace oxli::test
