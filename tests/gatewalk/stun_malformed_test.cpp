// Malformed input battery: one named row per class of fault that has hit STUN parsers. Each input
// sits in a heap block of its exact size, so the sanitizer build catches any read past it.
#include "stun_test_util.h"

namespace {

using namespace stun_test;

// Builds a message with raw attribute headers (lengths are whatever the row says).
struct Builder {
    static constexpr uint8_t kHeader[20] = {0x00, 0x01, 0x00, 0x00, 0x21, 0x12, 0xA4, 0x42, 1, 2,
                                            3,    4,    5,    6,    7,    8,    9,    10,   11, 12};
    Bytes b = Bytes(std::begin(kHeader), std::end(kHeader));

    Builder& Attr(uint16_t type, uint16_t length, Bytes value = {})
    {
        b.insert(b.end(), {static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type),
                           static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        b.insert(b.end(), value.begin(), value.end());
        return *this;
    }
    Builder& Raw(Bytes value)
    {
        b.insert(b.end(), value.begin(), value.end());
        return *this;
    }
    // Sets the header length to what follows the header, plus `adjust`, and drops `cut` trailing bytes.
    Bytes Done(int adjust = 0, size_t cut = 0)
    {
        auto length = static_cast<uint16_t>(static_cast<int>(b.size()) - 20 + adjust);
        b[2] = static_cast<uint8_t>(length >> 8);
        b[3] = static_cast<uint8_t>(length);
        b.resize(b.size() - cut);
        return b;
    }
};

Bytes Fill(size_t n, uint8_t v) { return Bytes(n, v); }
Bytes V4Value() { return {0, 1, 0x12, 0x34, 192, 0, 2, 1}; }

struct Row {
    const char* name;
    Bytes input;
    bool qloxAccepts;
    bool zynAccepts;
    // Optional checks on what an accepting decoder kept (both profiles share these fields).
    std::function<void(const qlox_gatewalk::StunMessage&)> check;
};

std::vector<Row> Battery()
{
    Bytes maxSized = Builder().Attr(0x8077, 1532, Fill(1532, 0)).Done();  // exactly 1556 bytes
    Bytes overSized = Builder().Attr(0x8077, 1532, Fill(1532, 0)).Raw({0}).Done(-1);  // 1557 bytes
    Builder peers;
    for (int i = 0; i < 11; ++i) peers.Attr(0x0012, 8, V4Value());
    return {
        {"length field past the buffer", Builder().Attr(0x0024, 4, {0, 0, 0, 1}).Done(4), false, false, {}},
        {"length field past the buffer by one", Builder().Attr(0x0024, 4, {0, 0, 0, 1}).Done(0, 1), false, false, {}},
        {"1 trailing byte inside the length", Builder().Attr(0x0024, 4, {0, 0, 0, 1}).Raw({0}).Done(), false, false, {}},
        {"3 trailing bytes inside the length", Builder().Attr(0x0024, 4, {0, 0, 0, 1}).Raw({0, 0, 0}).Done(), false, false, {}},
        {"2 trailing bytes past the length are ignored", Builder().Attr(0x0025, 0).Raw({0, 0}).Done(-2), true, true, {}},
        {"datagram of 19 bytes", Builder().Done(0, 1), false, false, {}},
        {"datagram of 0 bytes", Bytes{}, false, false, {}},
        {"datagram of exactly 1556 bytes", maxSized, true, true, {}},
        {"datagram of 1557 bytes", overSized, false, true, {}},
        {"address value of 4 bytes", Builder().Attr(0x0020, 4, {0, 1, 0, 1}).Done(), false, false, {}},
        {"IPv6 family with an IPv4-sized value", Builder().Attr(0x0020, 8, {0, 2, 0, 1, 1, 2, 3, 4}).Done(), false, false, {}},
        {"address family 3", Builder().Attr(0x0001, 8, {0, 3, 0, 1, 1, 2, 3, 4}).Done(), false, false, {}},
        {"ERROR-CODE under 4 bytes", Builder().Attr(0x0009, 3, {0, 0, 4}).Raw({0}).Done(), false, false, {}},
        {"USERNAME claims 3 bytes with 1 left", Builder().Attr(0x0006, 3, {'a'}).Done(), false, false, {}},
        {"over-long USERNAME as last attribute",
         Builder().Attr(0x0006, 1000, Fill(1000, 'u')).Done(), true, true,
         [](const auto& m) { EXPECT_EQ(m.username.sizeValue, 256); }},
        {"over-long REALM as last attribute", Builder().Attr(0x0014, 501, Fill(504, 'r')).Done(), true, true,
         [](const auto& m) { EXPECT_EQ(std::strlen(m.realm.value), 256u); }},
        {"over-long NONCE followed by REALM",
         Builder().Attr(0x0015, 300, Fill(300, 'n')).Attr(0x0014, 4, {'r', 'e', 'a', 'l'}).Done(), false, false, {}},
        {"over-long reason text", Builder().Attr(0x0009, 604, Fill(604, 'e')).Done(), true, true,
         [](const auto& m) { EXPECT_EQ(std::strlen(m.errorCode.reason), 255u); }},
        {"length plus padding overflows 16 bits", Builder().Attr(0x0031, 0xFFFF, Fill(8, 0)).Done(), false, false, {}},
        {"DATA of 0xFFFE bytes in a short message", Builder().Attr(0x0013, 0xFFFE, Fill(8, 0)).Done(), false, false, {}},
        {"UNKNOWN-ATTRIBUTES past the length", Builder().Attr(0x000A, 40, {0, 1, 0, 2}).Done(), false, false, {}},
        {"non-zero padding is accepted", Builder().Attr(0x0006, 5, {'a', 'b', 'c', 'd', 'e', 'X', 'Y', 'Z'}).Done(), true, true,
         [](const auto& m) { EXPECT_STREQ(m.username.value, "abcde"); }},
        {"PRIORITY with 2 bytes left", Builder().Attr(0x0024, 4, {0, 0}).Done(), false, false, {}},
        {"ICE-CONTROLLING with 4 bytes left", Builder().Attr(0x802A, 8, {0, 0, 0, 1}).Done(), false, false, {}},
        {"MESSAGE-INTEGRITY with 10 bytes", Builder().Attr(0x0008, 10, Fill(12, 0)).Done(), false, false, {}},
        {"FINGERPRINT with no value", Builder().Attr(0x8028, 4).Done(), false, false, {}},
        {"NetworkStatus with 4 bytes left", Builder().Attr(0xC002, 4, {0, 0, 0, 0}).Done(), false, true, {}},
        {"eleventh XOR-PEER-ADDRESS", peers.Done(), true, true,
         [](const auto& m) { EXPECT_EQ(m.xorPeerAddrEntries, 10u); }},
        // The flag's value is read as the next attribute header (type 0, length 0): framing holds.
        {"USE-CANDIDATE claiming a value", Builder().Attr(0x0025, 4, {0, 0, 0, 0}).Done(), true, true, {}},
    };
}

TEST(StunMalformed, EachFaultIsRefusedOrBounded)
{
    for (const Row& row : Battery()) {
        SCOPED_TRACE(row.name);
        // Exact-size heap copy: the sanitizers flag a single byte read past the input.
        std::unique_ptr<uint8_t[]> exact(new uint8_t[row.input.size() + (row.input.empty() ? 1 : 0)]);
        if (!row.input.empty()) std::memcpy(exact.get(), row.input.data(), row.input.size());
        auto q = NewMessage<qlox_gatewalk::StunMessage>();
        auto z = NewMessage<zyn_gatewalk::StunMessage>();
        gatewalk::StunAtrUnknown unknown{};
        bool qloxOk = qlox_gatewalk::stunlib_DecodeMessage(exact.get(), row.input.size(), q.get(), &unknown, nullptr);
        bool zynOk = zyn_gatewalk::stunlib_DecodeMessage(exact.get(), row.input.size(), z.get(), &unknown, nullptr);
        EXPECT_EQ(qloxOk, row.qloxAccepts);
        EXPECT_EQ(zynOk, row.zynAccepts);
        EXPECT_LE(unknown.numAttributes, 8);
        if (qloxOk && row.check) row.check(*q);
    }
}

TEST(StunMalformed, AttributeAppendedBehindIntegrity)
{
    // A peer that computed its HMAC with the length ending at MESSAGE-INTEGRITY, then someone adds an
    // attribute: qlox_gatewalk hashes the grown length and refuses; zyn_gatewalk ends the length at
    // the integrity attribute and accepts.
    auto m = NewMessage<qlox_gatewalk::StunMessage>();
    m->msgHdr.type = gatewalk::STUN_MSG_BindResponseMsg;
    m->msgHdr.id = Id(1);
    uint8_t key[] = "pw";
    uint8_t buf[200];
    uint32_t n = qlox_gatewalk::stunlib_encodeMessage(m.get(), buf, sizeof buf, key, 2, nullptr) - 8;  // drop FP
    const uint8_t extra[] = {0x80, 0x22, 0x00, 0x04, 'e', 'v', 'i', 'l'};
    std::memcpy(buf + n, extra, sizeof extra);
    n += sizeof extra;
    buf[3] = static_cast<uint8_t>(n - 20);
    auto q = NewMessage<qlox_gatewalk::StunMessage>();
    auto z = NewMessage<zyn_gatewalk::StunMessage>();
    ASSERT_TRUE(qlox_gatewalk::stunlib_DecodeMessage(buf, n, q.get(), nullptr, nullptr));
    ASSERT_TRUE(zyn_gatewalk::stunlib_DecodeMessage(buf, n, z.get(), nullptr, nullptr));
    EXPECT_FALSE(qlox_gatewalk::stunlib_checkIntegrity(buf, n, q.get(), key, 2));
    EXPECT_TRUE(zyn_gatewalk::stunlib_checkIntegrity(buf, n, z.get(), key, 2));
    EXPECT_STREQ(q->softwareName.value, "evil");
}

TEST(StunMalformed, EncoderNeverWritesPastTheBuffer)
{
    // Every length from 0 up to the full message: the encoder either fits or returns 0, and the
    // guard bytes behind the given length stay untouched.
    auto m = NewMessage<qlox_gatewalk::StunMessage>();
    m->msgHdr.type = gatewalk::STUN_MSG_BindRequestMsg;
    qlox_gatewalk::stunlib_addSoftware(m.get(), "software", ' ');
    qlox_gatewalk::stunlib_addUserName(m.get(), "user:name", ' ');
    qlox_gatewalk::stunlib_addError(m.get(), "Bad Request", 400, ' ');
    m->hasPriority = m->hasControlling = m->hasUseCandidate = 1;
    uint8_t key[] = "pw";
    for (unsigned int size = 0; size <= 140; ++size) {
        std::vector<uint8_t> buf(size + 16, 0xAB);
        uint32_t n = qlox_gatewalk::stunlib_encodeMessage(m.get(), buf.data(), size, key, 2, nullptr);
        EXPECT_LE(n, size);
        for (size_t i = size; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xAB) << "size " << size;
    }
}

}  // namespace
