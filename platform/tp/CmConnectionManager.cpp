#include "tp/CmSocketUtil.h"
#include "tp/CmTcpTransport.h"
#include "tp/CmThreadManager.h"
#include "tp/CmUdpAcceptor.h"

CCmConnectionManager* CCmConnectionManager::Instance()
{
    static CCmConnectionManager manager;
    return &manager;
}

namespace {

ACmThread* NetworkThread(int type)
{
    ACmThread* thread = CCmThreadManager::Instance()->GetThread(type);
    return (thread && thread->GetReactor()) ? thread : nullptr;
}

}  // namespace

CmResult CCmConnectionManager::CreateConnectionServer(uint32_t type, ICmAcceptor*& acceptor, int networkThreadType)
{
    acceptor = nullptr;
    ACmThread* thread = NetworkThread(networkThreadType);
    if (!thread) return CM_ERROR_FAILURE;
    const uint32_t framing = type & (CM_CONNECTION_OPTION_LENGTH | CM_CONNECTION_OPTION_STUN);
    if (framing == (CM_CONNECTION_OPTION_LENGTH | CM_CONNECTION_OPTION_STUN)) return CM_ERROR_INVALID_ARG;
    switch (type & ~(CM_CONNECTION_OPTION_LENGTH | CM_CONNECTION_OPTION_STUN)) {
    case CM_CONNECTION_TYPE_UDP: acceptor = new CCmUdpAcceptor(thread); break;
    case CM_CONNECTION_TYPE_TCP: acceptor = new CCmTcpAcceptor(thread, framing); break;
    default: return CM_ERROR_INVALID_ARG;
    }
    acceptor->AddReference();
    return CM_OK;
}

CmResult CCmConnectionManager::CreateConnectionClient(uint32_t type, ICmConnector*& connector, int networkThreadType)
{
    connector = nullptr;
    ACmThread* thread = NetworkThread(networkThreadType);
    if (!thread) return CM_ERROR_FAILURE;
    const uint32_t framing = type & (CM_CONNECTION_OPTION_LENGTH | CM_CONNECTION_OPTION_STUN);
    if (framing == (CM_CONNECTION_OPTION_LENGTH | CM_CONNECTION_OPTION_STUN)) return CM_ERROR_INVALID_ARG;
    if ((type & ~framing) != CM_CONNECTION_TYPE_TCP) return CM_ERROR_INVALID_ARG;
    connector = new CCmTcpConnector(thread, framing);
    connector->AddReference();
    return CM_OK;
}
