// The transaction client allocates once, in StunClient_Alloc, and never again: starting, resending,
// matching, cancelling, failing and answering do no operator new and no OpenSSL allocation. This
// binary counts both around a busy run of each profile.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "../common/heap_count.h"
#include "sockaddr_util.h"
#include "stunclient.h"

namespace {

// Static: the records are the caller's, and too big for a test stack.
qlox_gatewalk::StunMessage g_qloxMsg;
zyn_gatewalk::StunMessage g_zynMsg;
long g_sends = 0;
long g_results = 0;

sockaddr_storage Loopback(uint16_t port)
{
    sockaddr_storage a;
    gatewalk::sockaddr_reset(&a);
    gatewalk::sockaddr_initFromString(reinterpret_cast<sockaddr*>(&a), "127.0.0.1");
    gatewalk::sockaddr_setPort(reinterpret_cast<sockaddr*>(&a), port);
    return a;
}

template <class Msg>
void MakeAnswer(Msg& m, const gatewalk::StunMsgId& id)
{
    std::memset(static_cast<void*>(&m), 0, sizeof m);
    m.msgHdr.type = gatewalk::STUN_MSG_BindResponseMsg;
    m.msgHdr.id = id;
    m.hasXorMappedAddress = 1;
    gatewalk::stunlib_setIP4Address(&m.xorMappedAddress, 0x7f000001, 4000);
}

TEST(StunClientNoHeap, QloxStartsResendsAnswersAndFailsWithoutAllocating)
{
    namespace q = qlox_gatewalk;
    q::STUN_CLIENT_DATA* client = nullptr;
    ASSERT_TRUE(q::StunClient_Alloc(&client));
    const sockaddr_storage server = Loopback(3478), base = Loopback(4000);
    static q::TransactionAttributes attributes;
    std::strcpy(attributes.username, "a:b");
    std::strcpy(attributes.password, "secret");
    auto send = [](void*, bool, unsigned int, const unsigned char*, int, const sockaddr*, int, bool, unsigned char) {
        ++g_sends;
    };
    auto done = [](void*, q::StunCallBackData_T*) { ++g_results; };
    // Warm up OpenSSL's lazy initialisation once.
    q::StunClient_startBindTransaction(client, nullptr, reinterpret_cast<const sockaddr*>(&server),
                                       reinterpret_cast<const sockaddr*>(&base), 0, false, &attributes, send, done);
    const long before = heap_count::news, cryptoBefore = heap_count::cryptoAllocs;
    for (int i = 1; i < q::STUNCLIENT_MAX_INSTANCES; ++i) {
        gatewalk::stunlib_createId(&attributes.transactionId, i, 0);
        q::StunClient_startBindTransaction(client, nullptr, reinterpret_cast<const sockaddr*>(&server),
                                           reinterpret_cast<const sockaddr*>(&base), 0, false, &attributes, send, done);
    }
    for (int t = 0; t < 20; ++t) q::StunClient_HandleTick(client, 50);
    for (int i = 1; i < q::STUNCLIENT_MAX_INSTANCES; i += 2) {
        gatewalk::StunMsgId id;
        gatewalk::stunlib_createId(&id, i, 0);
        if (i % 4 == 1) q::StunClient_cancelBindingTransaction(client, id);
        MakeAnswer(g_qloxMsg, id);
        q::StunClient_HandleIncResp(client, &g_qloxMsg, reinterpret_cast<const sockaddr*>(&server));
    }
    for (int t = 0; t < 100; ++t) q::StunClient_HandleTick(client, 50);
    q::StunServer_SendConnectivityBindingResp(client, 1, attributes.transactionId, "secret",
                                              reinterpret_cast<const sockaddr*>(&base),
                                              reinterpret_cast<const sockaddr*>(&base), 1, 0, 0, 0, 0, 0, nullptr,
                                              send, 0, false, 487);
    EXPECT_EQ(heap_count::news - before, 0);
    EXPECT_EQ(heap_count::cryptoAllocs - cryptoBefore, 0);
    EXPECT_EQ(g_results, q::STUNCLIENT_MAX_INSTANCES);
    q::StunClient_free(client);
}

TEST(StunClientNoHeap, ZynStartsResendsAnswersAndFailsWithoutAllocating)
{
    namespace z = zyn_gatewalk;
    z::STUN_CLIENT_DATA* client = nullptr;
    ASSERT_TRUE(z::StunClient_Alloc(&client));
    const sockaddr_storage server = Loopback(3478), base = Loopback(4000);
    auto send = [](void*, int, const unsigned char*, int, const sockaddr*, bool) { ++g_sends; };
    auto done = [](void*, z::StunCallBackData_T*) { ++g_results; };
    g_results = 0;
    const long before = heap_count::news, cryptoBefore = heap_count::cryptoAllocs;
    gatewalk::StunMsgId id;
    for (int i = 0; i < z::STUNCLIENT_MAX_INSTANCES; ++i) {
        gatewalk::stunlib_createId(&id, i, 0);
        z::StunClient_startBindTransaction(client, nullptr, reinterpret_cast<const sockaddr*>(&server),
                                           reinterpret_cast<const sockaddr*>(&base), false, "a:b", "secret", 1, true,
                                           true, 2, id, 3, send, done, nullptr);
    }
    for (int t = 0; t < 20; ++t) z::StunClient_HandleTick(client, 50);
    for (int i = 0; i < z::STUNCLIENT_MAX_INSTANCES; i += 2) {
        gatewalk::stunlib_createId(&id, i, 0);
        MakeAnswer(g_zynMsg, id);
        z::StunClient_HandleIncResp(client, &g_zynMsg, reinterpret_cast<const sockaddr*>(&server));
    }
    for (int t = 0; t < 100; ++t) z::StunClient_HandleTick(client, 50);
    z::StunServer_SendConnectivityBindingResp(client, 3, id, "secret", reinterpret_cast<const sockaddr*>(&base),
                                              reinterpret_cast<const sockaddr*>(&base), nullptr, send, 0, false, 200,
                                              nullptr);
    EXPECT_EQ(heap_count::news - before, 0);
    EXPECT_EQ(heap_count::cryptoAllocs - cryptoBefore, 0);
    EXPECT_EQ(g_results, z::STUNCLIENT_MAX_INSTANCES);
    z::StunClient_free(client);
}

}  // namespace
