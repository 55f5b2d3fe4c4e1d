#include "jni/zblock.h"

#include <cstring>

#include "jni/base/memory.h"
#include "test/native/support/native_test.h"

namespace oxli::test {

namespace {

using jni::find;
using jni::fromHandle;
using jni::load;
using jni::ZBlockData;

// Passes the Java `ZBlock` as its own out-parameter, as the Java API does.
class ZBlockTest : public NativeTest {
 protected:
  void SetUp() override {
    NativeTest::SetUp();
    openEnvironment();
    zblock = newZBlock();
    payload = env->NewDirectByteBuffer(bytes, sizeof bytes);
    heap =
        env->CallStaticObjectMethod(env->FindClass("java/nio/ByteBuffer"),
                                    env->GetStaticMethodID(env->FindClass("java/nio/ByteBuffer"),
                                                           "allocate", "(I)Ljava/nio/ByteBuffer;"),
                                    jint{64});
    EXPECT_FALSE(env->ExceptionCheck());
    put(kOffset, 3, block);
  }
  void TearDown() override {
    EXPECT_EQ(OX_ERR_OK, OXLI(zblock_1destroy)(env, nullptr, handle()));
    NativeTest::TearDown();
  }

  jobject newZBlock() const { return make("org/quendel/oxli/ZBlock", "(J)V", jlong{0}); }
  jlong handle() const { return getLong(zblock, "getRef"); }
  ox_zblock_t* descriptor() const { return fromHandle<ZBlockData>(handle())->zblock; }
  jobject data() const { return dataOf(env, zblock); }

  ox_zblock_t* at(std::size_t offset) { return reinterpret_cast<ox_zblock_t*>(bytes + offset); }
  void put(std::size_t offset, std::uint32_t size, void* ptr) { *at(offset) = {size, ptr}; }
  static bool says(const ox_zblock_t* descriptor, std::uint32_t size, const void* ptr) {
    return descriptor->size == size && descriptor->ptr == ptr;
  }
  void wrap(jobject from, jlong offset) {
    OXLI(zblock_1wrap)(env, nullptr, from, zblock, zblock, offset);
  }

  static constexpr std::size_t kOffset = 7;
  char block[4096] = {1, 2, 3};
  char bytes[32] = {};
  jobject zblock = nullptr;
  jobject payload = nullptr;
  jobject heap = nullptr;
};

TEST_F(ZBlockTest, DescriptorOfOwnMemoryIsCopiedIntoPayloads) {
  const jobject memory = env->NewDirectByteBuffer(block, sizeof block);
  ASSERT_EQ(OX_ERR_OK, OXLI(zblock_1new)(env, nullptr, zblock, memory, zblock));
  EXPECT_EQ(fromHandle<ZBlockData>(handle()), find(ZBlockData::sZBlockMap, descriptor()));
  ASSERT_EQ(0, OXLI(zblock_1unwrap)(env, nullptr, payload, handle(), 20));
  EXPECT_EQ(4096u, load<std::uint32_t>(bytes + 20));
  EXPECT_EQ(block, load<char*>(bytes + 24));

  ASSERT_EQ(OX_ERR_OK, OXLI(zblock_1rebind)(env, nullptr, payload, handle()));
  EXPECT_TRUE(says(at(20), 4096, block));
  EXPECT_TRUE(says(descriptor(), sizeof bytes, bytes));
  EXPECT_TRUE(env->IsSameObject(payload, fromHandle<ZBlockData>(handle())->jbuffer.get()));
}

TEST_F(ZBlockTest, OneBindingMovesFromDescriptorToDescriptor) {
  wrap(payload, kOffset);
  const jlong first = handle();
  EXPECT_EQ(block, env->GetDirectBufferAddress(data()));
  EXPECT_EQ(3, env->GetDirectBufferCapacity(data()));
  EXPECT_NE(nullptr, find(ZBlockData::sZBlockMap, at(kOffset)));
  put(20, 0, nullptr);
  const int globals = probe->counts.globals;
  wrap(payload, 20);
  EXPECT_EQ(first, handle());
  EXPECT_EQ(at(20), descriptor());
  EXPECT_EQ(0, env->GetDirectBufferCapacity(data()));
  EXPECT_EQ(globals, probe->counts.globals);
  EXPECT_TRUE(ZBlockData::sZBlockMap.empty());

  const jobject memory = env->NewDirectByteBuffer(block + 1, 2);
  EXPECT_EQ(OX_ERR_OK, OXLI(zblock_1rebind)(env, nullptr, memory, handle()));
  EXPECT_TRUE(says(at(20), 2, block + 1));
  EXPECT_EQ(0, OXLI(zblock_1unwrap)(env, nullptr, payload, handle(), 18));
  EXPECT_TRUE(says(at(18), 2, block + 1));
}

TEST_F(ZBlockTest, InvalidOffsetsPayloadsAndBlocksAreRefused) {
  wrap(payload, kOffset);
  put(20, 0x80000000, block);
  put(0, 1, nullptr);
  const jlong bound = handle();
  const std::string before(bytes, sizeof bytes);
  const struct {
    jobject payload;
    jlong offset;
    bool isInside;
  } cases[] = {{nullptr, 0, false},         {heap, 0, false},
               {payload, -1, false},        {payload, 21, false},
               {payload, INT64_MAX, false}, {payload, INT64_MIN, false},
               {payload, 20, true},         {payload, 0, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.offset);
    wrap(payload, kOffset);
    EXPECT_NE(nullptr, data());
    wrap(c.payload, c.offset);
    EXPECT_EQ(nullptr, data());
    EXPECT_EQ(bound, handle());
    // The binding is released from its earlier descriptor.
    EXPECT_EQ(nullptr, descriptor());
    EXPECT_EQ(OX_ERR_INTERNAL, OXLI(zblock_1rebind)(env, nullptr, payload, bound));
    wrap(payload, kOffset);
    if (c.isInside) continue;
    EXPECT_EQ(-1, OXLI(zblock_1unwrap)(env, nullptr, c.payload, bound, c.offset));
  }
  EXPECT_EQ(before, std::string(bytes, sizeof bytes));
  wrap(payload, kOffset);
  OXLI(zblock_1wrap)(env, nullptr, payload, nullptr, zblock, kOffset);
  EXPECT_EQ(nullptr, data());
  OXLI(zblock_1wrap)(env, nullptr, nullptr, zblock, nullptr, 0);
  wrap(payload, kOffset);

  ZBlockData unbound;
  EXPECT_EQ(-1, OXLI(zblock_1unwrap)(env, nullptr, payload, jni::toHandle(&unbound), 0));
  EXPECT_EQ(OX_ERR_INTERNAL, OXLI(zblock_1rebind)(env, nullptr, payload, jni::toHandle(&unbound)));
  EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(zblock_1new)(env, nullptr, nullptr, payload, newZBlock()));
  for (const jobject memory : {jobject{nullptr}, heap}) {
    EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(zblock_1new)(env, nullptr, zblock, memory, zblock));
    EXPECT_EQ(OX_ERR_INVALIDARGUMENT, OXLI(zblock_1rebind)(env, nullptr, memory, bound));
  }
  EXPECT_EQ(bound, handle());
  EXPECT_EQ(before, std::string(bytes, sizeof bytes));
}

}  // namespace

}  // namespace oxli::test
