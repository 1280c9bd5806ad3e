// The codec promises no heap on its decode and encode paths. This binary counts every operator new
// and every allocation OpenSSL makes, and checks that decoding, checking integrity and FINGERPRINT,
// and encoding with and without a key do none.

#include "../common/heap_count.h"
#include "stun_test_util.h"
#include "stun_vectors.h"

namespace {

using namespace stun_test;

template <class Msg>
class StunNoHeap : public ::testing::Test {};
TYPED_TEST_SUITE(StunNoHeap, Profiles);

TYPED_TEST(StunNoHeap, DecodeCheckAndEncodeAllocateNothing)
{
    static TypeParam msg;  // static: the record is the caller's, and too big for a test stack
    static uint8_t buf[gatewalk::STUN_MAX_PACKET_SIZE];
    uint8_t key[] = "VOkJxbRl1RmTxUk/WvJxBt";
    const auto& v = stun_vectors::kRequest;
    stunlib_DecodeMessage(v, sizeof v, &msg, nullptr, nullptr);  // warm up OpenSSL's lazy init
    stunlib_checkIntegrity(v, sizeof v, &msg, key, 22);

    long before = heap_count::news;
    long cryptoBefore = heap_count::cryptoAllocs;
    gatewalk::StunAtrUnknown unknown;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(stunlib_DecodeMessage(v, sizeof v, &msg, &unknown, nullptr));
        ASSERT_TRUE(gatewalk::stunlib_checkFingerPrint(v, sizeof v - 4));
    }
    ASSERT_TRUE(stunlib_checkIntegrity(v, sizeof v, &msg, key, 22));
    msg.hasUseCandidate = 1;
    ASSERT_GT(stunlib_encodeMessage(&msg, buf, sizeof buf, key, 22, nullptr), 0u);
    ASSERT_GT(stunlib_encodeMessage(&msg, buf, sizeof buf, nullptr, 0, nullptr), 0u);
    EXPECT_EQ(heap_count::news - before, 0);
    EXPECT_EQ(heap_count::cryptoAllocs - cryptoBefore, 0);
}

}  // namespace
