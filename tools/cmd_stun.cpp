// `mediasession stun decode`: one STUN message, given as hex, decoded by either profile of the codec
// and printed as one JSON object, with its MESSAGE-INTEGRITY and FINGERPRINT checked.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "command.h"
#include "stunlib.h"

namespace {

using json = nlohmann::ordered_json;  // keys in the order they are set
using Bytes = std::vector<uint8_t>;

const tool::CommandSpec kSpec{
    .name = "stun decode",
    .summary = "decodes one STUN message given as hex and prints it as JSON, integrity and fingerprint "
               "checked; exit 2 when the decoder refuses it",
    .operands = {.name = "HEX|-", .help = "the message, in one or more words, or - for standard input", .min = 1,
                 .max = SIZE_MAX},
    .options =
        {
            {.name = "--profile", .help = "which profile of the codec decodes", .choices = {"qlox", "zyn"}},
            {.name = "--password", .value = "P", .help = "short-term key that checks MESSAGE-INTEGRITY"},
            {.name = "--long-term", .value = "USER:REALM:PASS", .help = "long-term credentials instead of --password"},
        },
};
constexpr int kExitRefused = 2;

template <class Msg>
constexpr bool kZyn = std::is_same_v<Msg, zyn_gatewalk::StunMessage>;

std::optional<Bytes> FromHex(const std::string& text)
{
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (std::isspace(static_cast<unsigned char>(c)) || c == ':') continue;
        if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
            ++i;
            continue;
        }
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
        digits += c;
    }
    if (digits.size() % 2) return std::nullopt;
    Bytes out(digits.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    return out;
}

std::string Hex(const uint8_t* p, size_t n)
{
    std::string s;
    char two[3];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(two, sizeof two, "%02x", p[i]);
        s += two;
    }
    return s;
}

std::string Hex64(uint64_t v)
{
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, v);
    return text;
}

std::string Address(const gatewalk::StunIPAddress& a)
{
    char text[64];
    return gatewalk::stunlib_formatIPAddress(&a, text, sizeof text);
}

std::string Text(const gatewalk::StunAtrString& s) { return std::string(s.value, std::strlen(s.value)); }

json NetworkStatus(const gatewalk::StunAtrNetworkStatus& n)
{
    return {{"flags", n.flags}, {"nodeCount", n.nodeCount}, {"upMaxBandwidth", n.upMaxBandwidth},
            {"downMaxBandwidth", n.downMaxBandwidth}};
}

template <class Msg>
json Attributes(const Msg& m)
{
    json a = json::object();
    if (m.hasMappedAddress) a["mappedAddress"] = Address(m.mappedAddress);
    if (m.hasUsername) a["username"] = Text(m.username);
    if (m.hasErrorCode) {
        a["errorCode"] = m.errorCode.errorClass * 100 + m.errorCode.number;
        a["errorReason"] = std::string(m.errorCode.reason);
    }
    if (m.hasUnknownAttributes)
        a["unknownAttribute"] = std::vector<uint16_t>(m.unknownAttributes.attrType,
                                                      m.unknownAttributes.attrType + m.unknownAttributes.numAttributes);
    if (m.hasXorMappedAddress) a["xorMappedAddress"] = Address(m.xorMappedAddress);
    if (m.hasSoftware) a["softwareName"] = Text(m.softwareName);
    if (m.hasLifetime) a["lifetime"] = m.lifetime;
    if (m.hasAlternateServer) a["alternateServer"] = Address(m.alternateServer);
    if (m.xorPeerAddrEntries) {
        json peers = json::array();
        for (uint32_t i = 0; i < m.xorPeerAddrEntries; ++i) peers.push_back(Address(m.xorPeerAddress[i]));
        a["xorPeerAddress"] = peers;
    }
    if (m.hasData) a["data"] = Hex(m.data.pData, m.data.dataLen);
    if (m.hasNonce) a["nonce"] = Text(m.nonce);
    if (m.hasRealm) a["realm"] = Text(m.realm);
    if (m.hasChannelNumber) a["channelNumber"] = m.channelNumber.channel;
    if (m.hasPriority) a["priority"] = m.priority;
    if (m.hasControlling) a["controlling"] = Hex64(m.controlling);
    if (m.hasControlled) a["controlled"] = Hex64(m.controlled);
    if (m.hasRequestedTransport) a["requestedTransport"] = m.requestedTransport.protocol;
    if (m.hasEvenPort) a["evenPort"] = m.evenPort.value;
    if (m.hasReservationToken) a["reservationToken"] = Hex64(m.reservationToken);
    if (m.hasUseCandidate) a["useCandidate"] = true;
    if (m.hasDontFragment) a["Dontfragment"] = true;
    if constexpr (kZyn<Msg>) {
        if (m.hasXorRelayAddress) a["xorRelayAddress"] = Address(m.xorRelayAddress);
        if (m.hasRequestedAddrFamily) a["requestedAddressFamily"] = m.requestedAddrFamily.family;
        if (m.hasMaliceMetadata) {
            const auto& md = m.maliceMetadata;
            json j = json::object();
            if (md.hasMDAgent) j["agent"] = std::vector<uint32_t>(md.mdAgent.value, md.mdAgent.value + 4);
            if (md.hasMDRespUP) j["respUp"] = std::vector<uint32_t>(md.mdRespUP.value, md.mdRespUP.value + 2);
            if (md.hasMDRespDN) j["respDn"] = std::vector<uint32_t>(md.mdRespDN.value, md.mdRespDN.value + 2);
            if (md.hasMDWord) j["word"] = md.mdWord;
            a["maliceMetadata"] = j;
        }
    } else {
        if (m.hasXorRelayAddressIPv4) a["xorRelayAddressIPv4"] = Address(m.xorRelayAddressIPv4);
        if (m.hasXorRelayAddressIPv6) a["xorRelayAddressIPv6"] = Address(m.xorRelayAddressIPv6);
        if (m.hasRequestedAddrFamilyBoth)
            a["requestedAddressFamily"] = {1, 2};
        else if (m.hasRequestedAddrFamilyIPv4 || m.hasRequestedAddrFamilyIPv6)
            a["requestedAddressFamily"] = m.hasRequestedAddrFamilyIPv4 ? 1 : 2;
        if (m.hasTTL) a["ttl"] = m.ttl.ttl;
        if (m.hasStreamType) a["streamType"] = {{"type", m.streamType.type}, {"interval", m.streamType.interval}};
        if (m.hasNetworkStatus) a["networkStatus"] = NetworkStatus(m.networkStatus);
        if (m.hasNetworkStatusResp) a["networkStatusResp"] = NetworkStatus(m.networkStatusResp);
        if (m.hasTransCount) a["transCount"] = {{"reqCnt", m.transCount.reqCnt}, {"respCnt", m.transCount.respCnt}};
    }
    return a;
}

// Where the FINGERPRINT value sits: walk the attribute headers by their padded lengths.
std::optional<unsigned int> FingerprintValueOffset(const Bytes& msg, unsigned int messageLength)
{
    unsigned int end = std::min<unsigned int>(20 + messageLength, static_cast<unsigned int>(msg.size()));
    for (unsigned int at = 20; at + 4 <= end;) {
        unsigned int type = msg[at] << 8 | msg[at + 1];
        unsigned int length = msg[at + 2] << 8 | msg[at + 3];
        if (type == gatewalk::STUN_ATTR_FingerPrint) {
            if (at + 8 <= msg.size()) return at + 4;
            break;
        }
        at += 4 + ((length + 3) & ~3u);
    }
    return std::nullopt;
}

template <class Msg>
int Decode(const Bytes& msg, const std::optional<Bytes>& key)
{
    auto m = std::make_unique<Msg>();
    char* captured = nullptr;
    size_t capturedSize = 0;
    FILE* diagnostics = open_memstream(&captured, &capturedSize);
    bool ok = stunlib_DecodeMessage(msg.data(), msg.size(), m.get(), nullptr, diagnostics);
    std::fclose(diagnostics);
    std::unique_ptr<char, decltype(&std::free)> hold(captured, &std::free);
    if (!ok) {
        // The decoder's own reason, without its dump of the partly filled record.
        std::string text(captured, capturedSize);
        std::fprintf(stderr, "%sstun decode: message refused by the decoder\n", text.c_str());
        return kExitRefused;
    }
    json out;
    out["type"] = m->msgHdr.type;
    out["name"] = gatewalk::stunlib_getMessageName(m->msgHdr.type);
    out["length"] = m->msgHdr.length;
    out["transaction_id"] = Hex(m->msgHdr.id.octet, sizeof m->msgHdr.id.octet);
    out["attributes"] = Attributes(*m);
    if (!m->hasMessageIntegrity)
        out["integrity"] = "absent";
    else if (!key)
        out["integrity"] = "unchecked";
    else
        out["integrity"] = stunlib_checkIntegrity(msg.data(), msg.size(), m.get(), const_cast<uint8_t*>(key->data()),
                                                  static_cast<int>(key->size()))
                               ? "ok"
                               : "bad";
    if (!m->hasFingerPrint) {
        out["fingerprint"] = "absent";
    } else {
        auto at = FingerprintValueOffset(msg, m->msgHdr.length);
        out["fingerprint"] = at && gatewalk::stunlib_checkFingerPrint(msg.data(), *at) ? "ok" : "bad";
    }
    std::cout << out.dump(-1, ' ', false, json::error_handler_t::replace) << "\n";
    return 0;
}

int RunDecode(const tool::Args& args)
{
    const std::string profile = args.Value("--profile", "qlox");
    std::optional<Bytes> key;
    if (args.Has("--password") && args.Has("--long-term")) {
        return tool::UsageError(kSpec, "--password and --long-term exclude each other");
    }
    if (args.Has("--password")) {
        const std::string p = args.Value("--password");
        key = Bytes(p.begin(), p.end());
    } else if (args.Has("--long-term")) {
        const std::string c = args.Value("--long-term");
        size_t first = c.find(':');
        size_t second = first == std::string::npos ? first : c.find(':', first + 1);
        if (second == std::string::npos) return tool::UsageError(kSpec, "--long-term wants USER:REALM:PASS");
        if (c.size() > 896) return tool::UsageError(kSpec, "credentials too long");
        std::string user = c.substr(0, first), realm = c.substr(first + 1, second - first - 1);
        std::string pass = c.substr(second + 1);
        key = Bytes(gatewalk::STUN_MD5_KEY_SIZE);
        gatewalk::stunlib_createMD5Key(key->data(), user.c_str(), realm.c_str(), pass.c_str());
    }
    // Hex may come split into several words; "-" reads it from standard input.
    const auto& words = args.Operands();
    std::string text;
    for (const auto& w : words) text += w;
    if (text == "-") text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    else if (std::find(words.begin(), words.end(), "-") != words.end())
        return tool::UsageError(kSpec, "- stands alone");
    auto bytes = FromHex(text);
    if (!bytes) return tool::UsageError(kSpec, "the message is not hex");
    if (!gatewalk::stunlib_isStunMsg(bytes->data(), static_cast<unsigned int>(bytes->size()))) {
        std::fprintf(stderr, "stun decode: not a STUN message (under 20 bytes, top bits set or no magic cookie)\n");
        return kExitRefused;
    }
    return profile == "zyn" ? Decode<zyn_gatewalk::StunMessage>(*bytes, key)
                            : Decode<qlox_gatewalk::StunMessage>(*bytes, key);
}

const tool::CommandRegistration reg{kSpec, RunDecode};

}  // namespace
