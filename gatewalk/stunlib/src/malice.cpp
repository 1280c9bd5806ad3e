// The metadata block of zyn_gatewalk: MD-AGENT, MD-RESP-UP, MD-RESP-DN and MD-WORD. Each value is a
// list of information elements (type u16, length u16, value) of which the codec knows one per
// attribute; anything it cannot read is reported and skipped, never fatal to the message.
#include "malice.h"

namespace gatewalk::detail {

namespace {

constexpr uint16_t kAgentElement = 0x0100;
constexpr uint16_t kRespElement = 0x0200;
constexpr unsigned int kAgentElementLength = 32;  // 12 zero bytes, 2 flow fields, 4 x u32
constexpr unsigned int kRespElementLength = 24;   // 12 zero bytes, 1 flow field, 2 zero bytes, 2 x u32
constexpr unsigned int kElementZeroPrefix = 12;
constexpr unsigned int kWordValueLength = 4;

// Three 3-bit values in bits 15..7 of a flow field; bits 6..0 are zero.
uint16_t PackFlow(const zyn_gatewalk::MaliceFlowData& f)
{
    return static_cast<uint16_t>((f.first & 7) << 13 | (f.second & 7) << 10 | (f.third & 7) << 7);
}

zyn_gatewalk::MaliceFlowData UnpackFlow(uint16_t v)
{
    return {static_cast<uint8_t>(v >> 13 & 7), static_cast<uint8_t>(v >> 10 & 7), static_cast<uint8_t>(v >> 7 & 7)};
}

bool EncodeAgent(Writer& w, const zyn_gatewalk::MaliceAgentData& a)
{
    uint8_t v[STUN_ATTR_HEADER_SIZE + kAgentElementLength] = {};
    Store16(v, kAgentElement);
    Store16(v + 2, kAgentElementLength);
    uint8_t* e = v + STUN_ATTR_HEADER_SIZE + kElementZeroPrefix;
    Store16(e, PackFlow(a.flowUp));
    Store16(e + 2, PackFlow(a.flowDn));
    for (int i = 0; i < 4; ++i) Store32(e + 4 + 4 * i, a.value[i]);
    return EncodeAtrBytes(w, STUN_ATTR_MDAgent, v, sizeof v, STUN_ATTR_HEADER_SIZE + sizeof v);
}

bool EncodeResp(Writer& w, uint16_t type, const zyn_gatewalk::MaliceRespData& d)
{
    uint8_t v[STUN_ATTR_HEADER_SIZE + kRespElementLength] = {};
    Store16(v, kRespElement);
    Store16(v + 2, kRespElementLength);
    uint8_t* e = v + STUN_ATTR_HEADER_SIZE + kElementZeroPrefix;
    Store16(e, PackFlow(d.flow));
    for (int i = 0; i < 2; ++i) Store32(e + 4 + 4 * i, d.value[i]);
    return EncodeAtrBytes(w, type, v, sizeof v, STUN_ATTR_HEADER_SIZE + sizeof v);
}

// Finds the element `wanted` of at least `need` bytes in an attribute value; null if there is none.
const uint8_t* FindElement(const uint8_t* value, unsigned int length, uint16_t wanted, unsigned int need,
                           const char* who, FILE* stream)
{
    unsigned int at = 0;
    while (length - at >= STUN_ATTR_HEADER_SIZE) {
        uint16_t type = Load16(value + at);
        uint16_t elementLength = Load16(value + at + 2);
        if (elementLength > length - at - STUN_ATTR_HEADER_SIZE) {
            if (stream) std::fprintf(stream, "%s: element 0x%04x length %u past the attribute\n", who, type, elementLength);
            return nullptr;
        }
        if (type == wanted && elementLength >= need) return value + at + STUN_ATTR_HEADER_SIZE;
        at += STUN_ATTR_HEADER_SIZE + Padded(elementLength);
        if (at > length) break;
    }
    if (stream) std::fprintf(stream, "%s: no element 0x%04x of %u bytes\n", who, wanted, need);
    return nullptr;
}

bool DecodeResp(const uint8_t* value, unsigned int length, zyn_gatewalk::MaliceRespData* d, FILE* stream)
{
    const uint8_t* e = FindElement(value, length, kRespElement, kRespElementLength, "maliceDecodeResp", stream);
    if (!e) return false;
    e += kElementZeroPrefix;
    d->flow = UnpackFlow(Load16(e));
    for (int i = 0; i < 2; ++i) d->value[i] = Load32(e + 4 + 4 * i);
    return true;
}

}  // namespace

MalicePlacement MalicePlacementFor(uint16_t messageType)
{
    if (messageType == STUN_MSG_BindRequestMsg || messageType == STUN_MSG_RefreshRequestMsg)
        return MalicePlacement::DnBeforeUpAfter;
    uint16_t base = messageType & static_cast<uint16_t>(~0x10u);
    if (base == STUN_MSG_BindResponseMsg || base == STUN_MSG_RefreshResponseMsg) return MalicePlacement::UpBeforeDnAfter;
    return MalicePlacement::BothBefore;
}

bool EncodeMaliceBefore(Writer& w, const zyn_gatewalk::MaliceMetadata& md, MalicePlacement placement)
{
    if (md.hasMDAgent && !EncodeAgent(w, md.mdAgent)) return false;
    if (md.hasMDWord) {
        uint8_t v[kWordValueLength] = {};
        Store16(v + 2, md.mdWord);
        if (!EncodeAtrBytes(w, STUN_ATTR_MDWord, v, sizeof v, STUN_ATTR_HEADER_SIZE + sizeof v)) return false;
    }
    bool dnBefore = placement != MalicePlacement::UpBeforeDnAfter;
    bool upBefore = placement != MalicePlacement::DnBeforeUpAfter;
    if (dnBefore && md.hasMDRespDN && !EncodeResp(w, STUN_ATTR_MDRespDN, md.mdRespDN)) return false;
    if (upBefore && md.hasMDRespUP && !EncodeResp(w, STUN_ATTR_MDRespUP, md.mdRespUP)) return false;
    return true;
}

bool EncodeMaliceAfter(Writer& w, const zyn_gatewalk::MaliceMetadata& md, MalicePlacement placement)
{
    if (placement == MalicePlacement::DnBeforeUpAfter && md.hasMDRespUP)
        return EncodeResp(w, STUN_ATTR_MDRespUP, md.mdRespUP);
    if (placement == MalicePlacement::UpBeforeDnAfter && md.hasMDRespDN)
        return EncodeResp(w, STUN_ATTR_MDRespDN, md.mdRespDN);
    return true;
}

void DecodeMaliceAttribute(Reader& r, uint16_t type, uint16_t atrLength, zyn_gatewalk::StunMessage* m, FILE* stream)
{
    zyn_gatewalk::MaliceMetadata& md = m->maliceMetadata;
    // The framing check of the message catches a length past the end; here only read what is there.
    unsigned int length = r.Has(atrLength) ? atrLength : 0;
    const uint8_t* value = r.At();
    bool ok = false;
    switch (type) {
    case STUN_ATTR_MDAgent:
        if (const uint8_t* e = FindElement(value, length, kAgentElement, kAgentElementLength, "maliceDecodeAgent", stream)) {
            e += kElementZeroPrefix;
            md.mdAgent.flowUp = UnpackFlow(Load16(e));
            md.mdAgent.flowDn = UnpackFlow(Load16(e + 2));
            for (int i = 0; i < 4; ++i) md.mdAgent.value[i] = Load32(e + 4 + 4 * i);
            md.hasMDAgent = ok = true;
        }
        if (!ok && stream) std::fputs("failed to decode MD-AGENT\n", stream);
        break;
    case STUN_ATTR_MDRespUP:
        if (DecodeResp(value, length, &md.mdRespUP, stream)) md.hasMDRespUP = ok = true;
        if (!ok && stream) std::fputs("failed to decode MD-RESP_UP\n", stream);
        break;
    case STUN_ATTR_MDRespDN:
        if (DecodeResp(value, length, &md.mdRespDN, stream)) md.hasMDRespDN = ok = true;
        if (!ok && stream) std::fputs("failed to decode MD-RESP-DN\n", stream);
        break;
    case STUN_ATTR_MDWord:
        if (length >= kWordValueLength) {
            md.mdWord = Load16(value + 2);
            md.hasMDWord = ok = true;
        }
        break;
    default:
        break;
    }
    // A value that cannot be read leaves what an earlier copy of the attribute gave.
    if (ok) m->hasMaliceMetadata = 1;
    r.Skip(Padded(atrLength), static_cast<long>(Padded(atrLength)));
}

}  // namespace gatewalk::detail
