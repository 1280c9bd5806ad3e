// The remote description: SetReceivedSDP_m and the checks behind it. A remote offer is only
// examined (the answer applies it); an answer is applied to the lines at once.
//
// Threads: the main thread, while the caller of SetReceivedSDP waits; info and count are the
// caller's and safe for that reason.
#include <exception>
#include <string>

#include "connection/MediaConnection.h"
#include "connection/SdpConversions.h"
#include "line/MediaConnectionInfo.h"
#include "sdp/offer_answer_values.h"
#include "util/CmTick.h"
#include "util/CmTrace.h"

namespace zyn {

#define CONN_TAIL MS_TAIL("", m_callId)

namespace {

// The direction of the first m line of that kind, inactive when there is none.
sdp::session_direction checkDirection(const sdp::session_group* group, ZynSessionType type)
{
    if (!group) return sdp::session_direction::inactive;
    for (const sdp::session& s : group->sessions)
        if (s.is_rtp() && ConvSessionType(s) == type) return s.get_direction();
    return sdp::session_direction::inactive;
}

void FillRecord(_tagSdpParsedInfo* info, int capacity, int position, ZynSessionType type, int32_t direction,
                uint64_t mid, bool multistream)
{
    if (!info || position >= capacity) return;
    info[position].sessionType = type;
    info[position].direction = direction;
    info[position].mid = mid;
    info[position].flag = multistream;
}

}  // namespace

ZynResult CMediaConnection::SetReceivedSDP_m(ZynSdpType type, const std::string& sdp, _tagSdpParsedInfo* info,
                                             int* count)
{
    const uint64_t now = get_tick_count();
    MS_INFO_TRACE("CMediaConnection::SetReceivedSDP, m_sdpStatus=" << m_sdpStatus << ", sdpType="
                  << static_cast<int>(type) << ", signal time=" << (m_localSdpSentTick ? now - m_localSdpSentTick : 0)
                  << "ms, [CheckPoint]" << CONN_TAIL);
    traceSdp(sdp);
    ZynResult result = ZYN_E_FAIL;
    switch (m_sdpStatus) {
    case 0:
        if (type == ZynSdpType_Offer) {
            MS_DETAIL_TRACE("Start Negotiating ...... ,[CheckPoint]" << CONN_TAIL);
            m_remoteSdp = sdp;
            m_sdpStatus = 1;
            result = checkRemoteOffer(info, count);
        } else {
            result = type == ZynSdpType_Answer ? ZYN_E_WRONGSTATE : ZYN_E_FAIL;
        }
        break;
    case 1: result = ZYN_E_WRONGSTATE; break;
    case 2:
        if (type == ZynSdpType_Offer) result = ZYN_E_WRONGSTATE;
        else if (type == ZynSdpType_Answer) result = applyRemoteAnswer(sdp, info, count, true);
        break;
    case 3:
        if (type == ZynSdpType_Offer) {
            m_remoteSdp = sdp;
            checkNegotiatedOffer(info, count);
            result = ZYN_S_OK;
        } else if (type == ZynSdpType_Answer) {
            result = applyRemoteAnswer(sdp, info, count, false);
        }
        break;
    default: break;
    }
    if (ZYN_SUCCEEDED(result)) m_mediaRunning.store(1);
    return result;
}

// The answer to our outstanding offer. The first one applies every agreed line; a later one, to a
// renewed offer in state 3, only moves directions.
ZynResult CMediaConnection::applyRemoteAnswer(const std::string& sdp, _tagSdpParsedInfo* info, int* count, bool first)
{
    if (!m_pLocalSessionGroup) return ZYN_E_FAIL;
    sdp::offer_answer oa(*m_pLocalSessionGroup);
    oa.set_session_version(m_sdpVersion);
    try {
        (void)oa.get_offer();  // only to put the exchange where the answer belongs
        oa.set_answer(sdp);
    } catch (const std::exception& e) {
        MS_ERROR_TRACE("Meet exception when set answer, ep=" << e.what() << CONN_TAIL);
    }
    m_localNegotiated = oa.get_local_negotiated();
    m_remoteNegotiated = oa.get_remote_negotiated();
    if (!first) {
        checkNegotiatedConnection(m_localNegotiated, m_remoteNegotiated, info, count);
        return ZYN_S_OK;
    }
    MS_DETAIL_TRACE("Starting checkRemoteNegotiated" << CONN_TAIL);
    const ZynResult result = checkRemoteNegotiated(m_remoteNegotiated, true);
    MS_DETAIL_TRACE("Starting checkNegotiatedConnection" << CONN_TAIL);
    checkNegotiatedConnection(m_localNegotiated, m_remoteNegotiated, info, count);
    m_sdpStatus = 3;
    MS_DETAIL_TRACE("Finish Negotiating ...... ,[CheckPoint]" << CONN_TAIL);
    return result;
}

const sdp::rtp_session* CMediaConnection::FindLocalNegotiated(ZynSessionType type) const
{
    const sdp::session_group* g = m_localNegotiated.get_if();
    if (!g) return nullptr;
    for (const sdp::session& s : g->sessions)
        if (s.is_rtp() && ConvSessionType(s) == type) return s.rtp.get_if();
    return nullptr;
}

unsigned long CMediaConnection::checkConnectionWithIndex(ZynSessionType type, size_t position)
{
    if (CMediaConnectionInfo* line = FindConnection(type)) return line->GetMid();
    return position;
}

ZynResult CMediaConnection::checkRemoteOffer(_tagSdpParsedInfo* info, int* count)
{
    const int capacity = count ? *count : 0;
    if (count) *count = 0;
    sdp::optional_value<sdp::session_group> group;
    try {
        group = sdp::session_group(sdp::session_description::create(m_remoteSdp));
    } catch (const std::exception& e) {
        MS_ERROR_TRACE("CMediaConnection::checkRemoteOffer, unreadable offer: " << e.what() << CONN_TAIL);
        return ZYN_E_FAIL;
    }
    const std::vector<sdp::session>& sessions = group.get_data().sessions;
    if (sessions.empty()) return ZYN_E_FAIL;
    int position = 0;
    for (const sdp::session& s : sessions) {
        const ZynSessionType type = ConvSessionType(s);
        int32_t direction = ZynDirection_None;
        if (const sdp::rtp_session* rtp = s.rtp.get_if()) {
            std::vector<ZynCodecType> priority{type == ZynSessionType_Video || type == ZynSessionType_ScreenShare
                                                   ? ZynCodecType_SVC
                                                   : ZynCodecType_OPUS};
            if (priority.front() == ZynCodecType_OPUS) {
                for (ZynCodecType c : {ZynCodecType_G722, ZynCodecType_ILBC, ZynCodecType_PCMA, ZynCodecType_G729,
                                       ZynCodecType_G7221_24K, ZynCodecType_G7221_32K})
                    priority.push_back(c);
            }
            CMediaConnectionInfo* line = FindConnection(type);
            std::vector<sdp::codec> local;
            buildCodecs(line, local, SortOutCodecs(type, priority, {}));
            auto possible = [&](bool forReceive) {
                try {
                    return !sdp::negotiate_codec(rtp->codecs, local, forReceive).empty();
                } catch (const std::exception&) {
                    return false;
                }
            };
            switch (rtp->direction) {
            case sdp::session_direction::sendonly: direction = possible(true) ? ZynDirection_Send : 0; break;
            case sdp::session_direction::sendrecv:
                direction = (possible(true) ? ZynDirection_Send : 0) | (possible(false) ? ZynDirection_Recv : 0);
                break;
            case sdp::session_direction::recvonly: direction = possible(false) ? ZynDirection_Recv : 0; break;
            case sdp::session_direction::inactive: break;
            }
        }
        const bool multistream = s.rtp.is_set() && s.rtp.get_data().cmulti.is_set();
        FillRecord(info, capacity, position, type, direction, checkConnectionWithIndex(type, position), multistream);
        ++position;
    }
    if (count) *count = position;
    return ZYN_S_OK;
}

ZynResult CMediaConnection::checkRemoteNegotiated(const sdp::optional_value<sdp::session_group>& group, bool isAnswer)
{
    const sdp::session_group* g = group.get_if();
    if (!g || g->sessions.empty()) return ZYN_E_FAIL;
    if (g->sobe.is_set() && !g->sobe.get_data().versions.empty())
        MS_INFO_TRACE("CMediaConnection::checkSobeCaps -- sobe version : " << g->sobe.get_data().versions.front()
                                                                           << CONN_TAIL);
    else
        MS_INFO_TRACE("CMediaConnection::checkSobeCaps -- no sobe capability" << CONN_TAIL);
    for (const sdp::session& s : g->sessions) {
        const ZynSessionType type = ConvSessionType(s);
        const uint16_t port = s.get_port();
        MS_DETAIL_TRACE("CMediaConnection::checkRemoteNegotiated -- connect remote, port:"
                        << port << ", type:" << static_cast<int>(type) << CONN_TAIL);
        const sdp::rtp_session* rtp = s.rtp.get_if();
        CMediaConnectionInfo* line = rtp ? FindConnection(type) : nullptr;
        if (!line || port == 0) continue;
        line->SetNegotiated(true);
        line->setupEncodeCodecs(rtp->codecs);
        line->setupExtMap(rtp->ext_maps, false);
        line->setupBandwidth(rtp->get_bandwidth());
        line->setupMultiCaps(rtp->cmulti);
        line->setupResilience(*rtp);
        std::vector<sdp::crypto> local;
        line->buildSrtpCryptos(local);
        line->setupSrtp(rtp->cryptos, local);
        const ZynResult r = line->CreateRemoteZynSession(m_pZynEngine, false);
        if (!ZYN_SUCCEEDED(r)) {
            MS_ERROR_TRACE("CMediaConnection::checkRemoteNegotiated -- CreateRemoteZynSession failed, cret="
                           << r << CONN_TAIL);
            CM_ASSERT_REPORT("ZYN_SUCCEEDED(cret)");
            return ZYN_E_FAIL;
        }
        line->setupSdesKeys();
        // The offerer controls ICE. The m line's address is the peer's default, and the agreed
        // DTLS role is ours as the local negotiated section says it.
        CCmInetAddr address;
        if (address.Set(rtp->ip_address.c_str(), rtp->port, true) != CM_OK)
            MS_WARNING_TRACE("CMediaConnection::checkRemoteNegotiated -- no remote address, type:"
                             << static_cast<int>(type) << CONN_TAIL);
        const sdp::rtp_session* localRtp = FindLocalNegotiated(type);
        const sdp::dtls_setup_role role = localRtp && localRtp->dtls.is_set() ? localRtp->dtls.get_data().role
                                                                              : sdp::dtls_setup_actpass;
        const bool mux = rtp->rtcp_mux && m_globalConfig.IsRTCPMuxEnabled();
        line->Connect(rtp->ice, address, isAnswer, 0, mux, role, rtp->dtls);
    }
    return ZYN_S_OK;
}

void CMediaConnection::checkNegotiatedConnection(const sdp::optional_value<sdp::session_group>&,
                                                 const sdp::optional_value<sdp::session_group>& remote,
                                                 _tagSdpParsedInfo* info, int* count)
{
    const int capacity = count ? *count : 0;
    int position = 0;
    for (CMediaConnectionInfo* line : m_connections) {
        if (!line || line->IsAudioSlideMix() || line->GetSessionType() == ZynSessionType_Application) continue;
        ZynDirection direction = ZynDirection_None;
        if (line->IsNegotiated()) {
            direction = ConvDirection(checkDirection(remote.get_if(), line->GetSessionType()));
        } else {
            MS_WARNING_TRACE("CMediaConnection::checkNegotiatedConnection -- negotiatied failed, type:"
                             << static_cast<int>(line->GetSessionType()) << CONN_TAIL);
            line->Stop();
        }
        line->SetNegotiatedDirection(direction);
        FillRecord(info, capacity, position, line->GetSessionType(), direction, line->GetMid(), line->IsMultistream());
        ++position;
    }
    if (count) *count = position;
}

void CMediaConnection::checkNegotiatedOffer(_tagSdpParsedInfo* info, int* count)
{
    const int capacity = count ? *count : 0;
    sdp::optional_value<sdp::session_group> remote;
    try {
        remote = sdp::session_group(sdp::session_description::create(m_remoteSdp));
    } catch (const std::exception& e) {
        MS_ERROR_TRACE("CMediaConnection::checkNegotiatedOffer, unreadable offer: " << e.what() << CONN_TAIL);
    }
    int position = 0;
    for (CMediaConnectionInfo* line : m_connections) {
        if (!line || line->IsAudioSlideMix() || line->GetSessionType() == ZynSessionType_Application) continue;
        ZynDirection direction = ZynDirection_None;
        if (line->IsNegotiated()) {
            const sdp::session_direction offered = checkDirection(remote.get_if(), line->GetSessionType());
            direction = ConvDirection(sdp::negotiate_direction(ConvZynDirection(line->GetDirection()), offered, false));
        } else {
            MS_WARNING_TRACE("CMediaConnection::checkNegotiatedOffer -- negotiatied failed, type:"
                             << static_cast<int>(line->GetSessionType()) << CONN_TAIL);
            line->Stop();
        }
        FillRecord(info, capacity, position, line->GetSessionType(), direction, line->GetMid(), line->IsMultistream());
        ++position;
    }
    if (count) *count = position;
}

}  // namespace zyn
