// The codec promises no heap on its decode and encode paths. This binary counts every operator new
// and every allocation OpenSSL makes, and checks that decoding, checking integrity and FINGERPRINT,
// and encoding with and without a key do none.
#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "stun_test_util.h"
#include "stun_vectors.h"

namespace {

std::atomic<long> g_news{0};
std::atomic<long> g_cryptoAllocs{0};

void* CountingMalloc(size_t n, const char*, int)
{
    ++g_cryptoAllocs;
    return std::malloc(n);
}
void* CountingRealloc(void* p, size_t n, const char*, int)
{
    ++g_cryptoAllocs;
    return std::realloc(p, n);
}
void CountingFree(void* p, const char*, int) { std::free(p); }

}  // namespace

void* operator new(size_t n)
{
    ++g_news;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

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

    long before = g_news;
    long cryptoBefore = g_cryptoAllocs;
    gatewalk::StunAtrUnknown unknown;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(stunlib_DecodeMessage(v, sizeof v, &msg, &unknown, nullptr));
        ASSERT_TRUE(gatewalk::stunlib_checkFingerPrint(v, sizeof v - 4));
    }
    ASSERT_TRUE(stunlib_checkIntegrity(v, sizeof v, &msg, key, 22));
    msg.hasUseCandidate = 1;
    ASSERT_GT(stunlib_encodeMessage(&msg, buf, sizeof buf, key, 22, nullptr), 0u);
    ASSERT_GT(stunlib_encodeMessage(&msg, buf, sizeof buf, nullptr, 0, nullptr), 0u);
    EXPECT_EQ(g_news - before, 0);
    EXPECT_EQ(g_cryptoAllocs - cryptoBefore, 0);
}

}  // namespace

int main(int argc, char** argv)
{
    CRYPTO_set_mem_functions(CountingMalloc, CountingRealloc, CountingFree);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
