// Operations that carry a mid and hand the work to that line: share observers, application data,
// packets from the application's own transport, failover and CSI updates.
// Thread: the caller's (the application's main thread as a rule; ReceiveRTP and ReceiveRTCP from
// its receive thread). The line list is only changed on the main thread, by AddMedia and the
// clean-up after Stop.
#include "connection/MediaConnection.h"
#include "line/MediaConnectionInfo.h"
#include "util/CmTrace.h"
#include "zyn/ZynEngineApi.h"

namespace zyn {

ZynResult CMediaConnection::AddScreenShareObserver(unsigned long mid, IZynScreenShareObserver* observer)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    return line ? line->AddScreenShareObserver(observer) : ZYN_E_NOTFOUND;
}

ZynResult CMediaConnection::RemoveScreenShareObserver(unsigned long mid, IZynScreenShareObserver* observer)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    return line ? line->RemoveScreenShareObserver(observer) : ZYN_E_NOTFOUND;
}

ZynResult CMediaConnection::SendApplicationData(unsigned long mid, const unsigned char* data, unsigned int length)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line || line->GetSessionType() != ZynSessionType_Application) return ZYN_E_FAIL;
    return line->SendApplicationData(data, length);
}

ZynResult CMediaConnection::ReceiveRTP(unsigned long mid, unsigned char* data, unsigned int length, _tagRtpFilter*,
                                       unsigned char*)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("RecRTP", ZYN_E_FAIL);
    return line->ReceiveExternalRTP(data, length);
}

ZynResult CMediaConnection::ReceiveRTCP(unsigned long mid, unsigned char* data, unsigned int length)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    if (!line) return Kick("RecRTCP", ZYN_E_FAIL);
    return line->ReceiveExternalRTCP(data, length);
}

ZynResult CMediaConnection::Failover(unsigned long mid)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    IZynMediaSession* session = line ? line->GetZynSession() : nullptr;
    if (!session) return Kick("Failover", ZYN_E_FAIL);
    return session->Failover();
}

ZynResult CMediaConnection::UpdateCSI(unsigned long mid, unsigned int label, unsigned int csi)
{
    CMediaConnectionInfo* line = FindConnection(mid);
    IZynMediaSession* session = line ? line->GetZynSession() : nullptr;
    if (!session) {
        CM_ASSERT_REPORT("info && info->m_pZynSession");
        return Kick("UpdateCSI", ZYN_E_POINTER);
    }
    return session->UpdateCSI(label, csi);
}

}  // namespace zyn
