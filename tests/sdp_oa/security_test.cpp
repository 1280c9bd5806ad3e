// Answer and conclusion rules of keying: SDES crypto, prime-crypto and DTLS setup roles.
#include "oa_test_util.h"

namespace {

using namespace sdp;

crypto make_crypto(const std::string& value) { return crypto(attribute_line::create("a=crypto:" + value)); }
prime_crypto make_prime(const std::string& value) { return prime_crypto(attribute_line::create("a=prime-crypto:" + value)); }

struct crypto_case {
    const char* name;
    std::vector<std::string> offered;
    std::vector<std::string> local;
    std::vector<std::string> answer;
};

TEST(Crypto, AnswerTable)
{
    const char* k80 = "AES_CM_128_HMAC_SHA1_80";
    const char* k32 = "AES_CM_128_HMAC_SHA1_32";
    auto line = [](int tag, const char* suite, const char* key, const char* params = "") {
        return std::to_string(tag) + " " + suite + " inline:" + key + (*params ? " " : "") + params;
    };
    const std::vector<crypto_case> cases = {
        {"offered tag and suite, local key", {line(1, k80, "OFFER")}, {line(7, k80, "LOCAL")}, {line(1, k80, "LOCAL")}},
        {"first offered entry that fits", {line(1, "AES_256_CM_HMAC_SHA1_80", "O1"), line(2, k32, "O2"), line(3, k80, "O3")},
         {line(1, k80, "L80"), line(2, k32, "L32")}, {line(2, k32, "L32")}},
        {"no common suite means no SRTP", {line(1, k80, "O")}, {line(1, k32, "L")}, {}},
        {"session flags must agree", {line(1, k80, "O", "UNENCRYPTED_SRTCP")}, {line(1, k80, "L")}, {}},
        {"local session parameters answered", {line(1, k80, "O", "UNENCRYPTED_SRTP")},
         {line(5, k80, "L", "UNENCRYPTED_SRTP")}, {line(1, k80, "L", "UNENCRYPTED_SRTP")}},
        {"no local crypto", {line(1, k80, "O")}, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<crypto> offered, local, expected;
        for (const auto& t : c.offered) offered.push_back(make_crypto(t));
        for (const auto& t : c.local) local.push_back(make_crypto(t));
        for (const auto& t : c.answer) expected.push_back(make_crypto(t));
        EXPECT_EQ(get_answer_crypto(offered, local), expected);
    }
}

TEST(Crypto, ConclusionKeysOfTheNamedSide)
{
    std::vector<crypto> offer = {make_crypto("1 AES_CM_128_HMAC_SHA1_80 inline:OFFER1"),
                                 make_crypto("2 AES_CM_128_HMAC_SHA1_80 inline:OFFER2"),
                                 make_crypto("3 AES_CM_128_HMAC_SHA1_32 inline:OFFER3")};
    // The answer took the second entry (same suite as the first): its tag identifies it.
    std::vector<crypto> answer = {make_crypto("2 AES_CM_128_HMAC_SHA1_80 inline:ANSWER")};
    EXPECT_EQ(negotiate_crypto(offer, answer, true), std::vector<crypto>{offer[1]});
    EXPECT_EQ(negotiate_crypto(offer, answer, false), answer);
    EXPECT_EQ(negotiate_crypto(answer, offer, true), answer);
    EXPECT_EQ(negotiate_crypto(answer, offer, false), std::vector<crypto>{offer[1]});
    EXPECT_TRUE(negotiate_crypto(offer, {}, true).empty());
}

TEST(PrimeCrypto, CompatibilityAndKeys)
{
    auto base = make_prime("1 AES_CM_128_HMAC_SHA1_80 p1 inline:OFFER");
    struct row {
        const char* name;
        std::string local;
        bool compatible;
    };
    const row rows[] = {
        {"same suite and field", "4 AES_CM_128_HMAC_SHA1_80 p1 inline:LOCAL", true},
        {"other suite", "4 AES_CM_128_HMAC_SHA1_32 p1 inline:LOCAL", false},
        {"other second field", "4 AES_CM_128_HMAC_SHA1_80 p2 inline:LOCAL", false},
        {"EKT on one side only", "4 AES_CM_128_HMAC_SHA1_80 p1 inline:LOCAL EKT=AES|k|1", false},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        auto local = make_prime(r.local);
        EXPECT_EQ(prime_crypto_is_compatible(base, local), r.compatible);
        auto answer = get_answer_prime_crypto({base}, {local});
        if (!r.compatible) {
            EXPECT_TRUE(answer.empty());
            continue;
        }
        ASSERT_EQ(answer.size(), 1u);
        EXPECT_EQ(answer[0].tag, 1u);
        EXPECT_EQ(answer[0].key, local.key);
    }
    auto offered = make_prime("1 S p inline:OFFER EKT=AES|offerekt|1");
    auto local = make_prime("9 S p inline:LOCAL EKT=AES|localekt|2");
    auto answer = get_answer_prime_crypto({offered}, {local});
    ASSERT_EQ(answer.size(), 1u);
    EXPECT_EQ(answer[0].ekt, local.ekt);
    EXPECT_EQ(negotiate_prime_crypto({offered}, answer, true), std::vector<prime_crypto>{offered});
    EXPECT_EQ(negotiate_prime_crypto({offered}, answer, false), answer);
}

dtls_caps dtls(dtls_setup_role role, const std::string& fingerprint)
{
    return dtls_caps(role, {sdp::fingerprint("sha-256", fingerprint)});
}

TEST(Dtls, RoleTable)
{
    struct row {
        dtls_setup_role offered, local;
        bool answered;
        dtls_setup_role answer;
    };
    const row rows[] = {
        {dtls_setup_passive, dtls_setup_active, true, dtls_setup_active},
        {dtls_setup_passive, dtls_setup_actpass, true, dtls_setup_active},
        {dtls_setup_passive, dtls_setup_passive, false, dtls_setup_active},
        {dtls_setup_active, dtls_setup_passive, true, dtls_setup_passive},
        {dtls_setup_active, dtls_setup_actpass, true, dtls_setup_passive},
        {dtls_setup_active, dtls_setup_active, false, dtls_setup_active},
        {dtls_setup_actpass, dtls_setup_passive, true, dtls_setup_passive},
        {dtls_setup_actpass, dtls_setup_active, true, dtls_setup_active},
        {dtls_setup_actpass, dtls_setup_actpass, true, dtls_setup_active},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(dtls_setup_role_to_string(r.offered) + " / " + dtls_setup_role_to_string(r.local));
        optional_value<dtls_caps> offered = dtls(r.offered, "OFFER");
        optional_value<dtls_caps> local = dtls(r.local, "LOCAL");
        auto answer = get_answer_dtls(offered, local);
        ASSERT_EQ(answer.is_set(), r.answered);
        if (!r.answered) continue;
        EXPECT_EQ(answer.get_data().role, r.answer);
        EXPECT_EQ(answer.get_data().fingerprints.front().value, "LOCAL");

        // Both sides conclude to complementary roles and agree on who is who.
        auto offerer_local = negotiate_dtls(offered, answer, true);
        auto offerer_remote = negotiate_dtls(offered, answer, false);
        auto answerer_local = negotiate_dtls(answer, offered, true);
        auto answerer_remote = negotiate_dtls(answer, offered, false);
        ASSERT_TRUE(offerer_local.is_set() && offerer_remote.is_set() && answerer_local.is_set() && answerer_remote.is_set());
        EXPECT_EQ(answerer_local.get_data().role, r.answer);
        EXPECT_NE(offerer_local.get_data().role, dtls_setup_actpass);
        EXPECT_NE(offerer_local.get_data().role, answerer_local.get_data().role);
        EXPECT_EQ(offerer_local, answerer_remote);
        EXPECT_EQ(offerer_remote, answerer_local);
        EXPECT_EQ(offerer_local.get_data().fingerprints.front().value, "OFFER");
        EXPECT_EQ(offerer_remote.get_data().fingerprints.front().value, "LOCAL");
    }
}

TEST(Dtls, EitherSideWithoutDtls)
{
    optional_value<dtls_caps> some = dtls(dtls_setup_actpass, "X");
    EXPECT_TRUE(get_answer_dtls({}, some).empty());
    EXPECT_TRUE(get_answer_dtls(some, {}).empty());
    EXPECT_TRUE(negotiate_dtls(some, {}, true).empty());
    EXPECT_TRUE(negotiate_dtls({}, some, false).empty());
}

}  // namespace
