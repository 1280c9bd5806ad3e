// Not yet built: each operation answers that it is not implemented.
#include "connection/MediaConnection.h"

namespace zyn {

ZynResult CMediaConnection::SetLocalPort(unsigned long, const char*, unsigned short, bool, unsigned int*)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::ConnectRemote(unsigned long, bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::DisconnectRemote(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::ConfigureTURN(const char*, const char*, ZynTURNTransportType, const char**)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::CancelConfigureTurn()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::ConfigureSTUN(const char*, const char*, const char**)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::CancelConfigureStun()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::CheckIceServerConnectiveWithLocalIp(const char*)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::allocateTurnRelayedAndReflexiveAddress(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::resetIceForBwcCalling(unsigned long, bool, bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::resetIceForZarnCalling(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StopListening(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::StartIceConnectivityCheckForSipCall()
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::SetTransport(unsigned long, IZynMediaTransport*, bool)
{
    return ZYN_E_NOTIMPL;
}

ZynResult CMediaConnection::OnSendReady(unsigned long)
{
    return ZYN_E_NOTIMPL;
}

}  // namespace zyn
