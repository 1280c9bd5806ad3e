// Transport-side types of the connection: TURN transports, and the transport an application gives
// a line when it carries the packets itself.
#pragma once

#include "mediasession/ZynDefines.h"

// How a line reaches a TURN server.
enum ZynTURNTransportType : int32_t {
    ZynTURNTransport_UDP = 0,
    ZynTURNTransport_TCP = 1,
};

// What a transport answers for a packet it cannot take now: the engine sends it nothing more until
// OnSendReady of the connection.
constexpr ZynResult ZynTransport_WouldBlock = 30000013;

// What a session sends through: the media line implements it, and so does an application that
// carries a line's packets on a transport of its own (SetTransport).
class IZynMediaTransport {
public:
    virtual ~IZynMediaTransport() = default;
    virtual int32_t GetTransportType() = 0;
    virtual ZynResult SendRTPPacket(const uint8_t* data, uint32_t length) = 0;
    virtual ZynResult SendRTCPPacket(const uint8_t* data, uint32_t length) = 0;
};
