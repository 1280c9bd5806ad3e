#include "call_exchange.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>

namespace tool {

namespace {

const char* TypeName(int type)
{
    switch (type) {
    case ZynSessionType_Audio: return "audio";
    case ZynSessionType_Video: return "video";
    case ZynSessionType_ScreenShare: return "share";
    case ZynSessionType_AudioSlide: return "audio-slide";
    case ZynSessionType_Application: return "application";
    default: return "unknown";
    }
}

// Keys and ICE passwords never reach a terminal unless asked for: the same rule as the traces.
std::string Masked(const std::string& text)
{
    static const std::regex secrets(R"((inline\:)\S*|(ice-pwd\:)\S*)");
    return std::regex_replace(text, secrets, "$1$2 ******");
}

void PrintDescription(const char* side, const char* kind, const std::string& text, const ExchangeOptions& options)
{
    if (!options.printDescriptions) return;
    std::printf("----- %s of %s -----\n%s----- end -----\n", kind, side,
                (options.insecure ? text : Masked(text)).c_str());
}

void PrintRecords(const char* side, const char* what, const _tagSdpParsedInfo* info, int count, int capacity)
{
    std::printf("[%s] records of the %s: %d\n", side, what, count);
    for (int i = 0; i < count && i < capacity; ++i)
        std::printf("  mid=%llu type=%s direction=%d multistream=%s\n", static_cast<unsigned long long>(info[i].mid),
                    TypeName(info[i].sessionType), info[i].direction, info[i].flag ? "yes" : "no");
}

bool Save(const ExchangeOptions& options, const char* name, const std::string& text)
{
    if (options.saveDir.empty()) return true;
    std::ofstream out(options.saveDir + "/" + name, std::ios::binary);
    out << text;
    return static_cast<bool>(out);
}

}  // namespace

void CallSide::OnMediaReady(unsigned long mid, ZynDirection direction, ZynSessionType type, IZynMediaTrackBase*)
{
    std::printf("[%s] media ready: mid=%lu type=%s direction=%d\n", m_name, mid, TypeName(type), direction);
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_ready;
    m_changed.notify_all();
}

void CallSide::OnSDPReady(ZynSdpType type, const char* sdp)
{
    const std::string text = sdp ? sdp : "";
    std::printf("[%s] %s ready (%zu bytes)\n", m_name, type == ZynSdpType_Offer ? "offer" : "answer", text.size());
    std::lock_guard<std::mutex> lock(m_mutex);
    (type == ZynSdpType_Offer ? m_offer : m_answer) = text;
}

void CallSide::OnError(int code, void*) { std::printf("[%s] error 0x%08x\n", m_name, static_cast<unsigned>(code)); }

bool CallSide::WaitMediaReady(int count)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_ready >= count; });
}

std::string CallSide::LastSdp(ZynSdpType type)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return type == ZynSdpType_Offer ? m_offer : m_answer;
}

bool Check(const char* what, ZynResult r)
{
    std::printf("  %-32s 0x%08x %s\n", what, static_cast<unsigned int>(r), ZYN_SUCCEEDED(r) ? "ok" : "FAILED");
    return ZYN_SUCCEEDED(r);
}

bool ExchangeDescriptions(IZynMediaConnection* a, CallSide& sideA, IZynMediaConnection* b, CallSide& sideB,
                          const ExchangeOptions& options)
{
    constexpr int kCapacity = 16;
    _tagSdpParsedInfo info[kCapacity] = {};
    bool ok = Check("A: create offer", a->CreateOffer());
    const std::string offer = sideA.LastSdp(ZynSdpType_Offer);
    if (!ok || offer.empty()) return false;
    PrintDescription(sideA.Name(), "offer", offer, options);
    int count = kCapacity;
    ok &= Check("B: set remote offer", b->SetReceivedSDP(ZynSdpType_Offer, offer.c_str(), info, &count));
    PrintRecords(sideB.Name(), "offer", info, count, kCapacity);
    ok &= Check("B: create answer", b->CreateAnswer());
    const std::string answer = sideB.LastSdp(ZynSdpType_Answer);
    if (!ok || answer.empty()) return false;
    PrintDescription(sideB.Name(), "answer", answer, options);
    count = kCapacity;
    ok &= Check("A: set remote answer", a->SetReceivedSDP(ZynSdpType_Answer, answer.c_str(), info, &count));
    PrintRecords(sideA.Name(), "answer", info, count, kCapacity);
    std::printf("  negotiation state: A=%d B=%d\n", a->GetSDPStatus(), b->GetSDPStatus());
    ok &= a->GetSDPStatus() == 3 && b->GetSDPStatus() == 3;
    ok &= Save(options, "offer.sdp", offer) && Save(options, "answer.sdp", answer);
    return ok;
}

}  // namespace tool
