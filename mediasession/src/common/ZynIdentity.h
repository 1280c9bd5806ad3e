// Identity of lines, tracks and helpers: one 64-bit value (low 32 bits the call id, bits 32 to 35
// the session type, 15 while unknown) and the strings traces are built from.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "mediasession/ZynDefines.h"

const char* ZynSessionTypeTraceTag(int type);  // "[Audio]" ... "[Application]", "" otherwise
const char* ZynIdentityTag(int type);          // "[A]", "[V]", "[VS]", "[AS]", "[AP]", "" otherwise

template <class T>
class ZYNIdentityT {
public:
    static constexpr uint64_t kEmpty = 0xF00000000ull;

    explicit ZYNIdentityT(uint32_t callId = 0, int type = ZynSessionType_Unknown) { SetIdentity(callId, type); }

    void SetIdentity(uint32_t callId, int type)
    {
        uint64_t id = (static_cast<uint64_t>(type & 0xF) << 32) | callId;
        if (id == m_identity && !m_tag.empty()) return;
        m_identity = id;
        if (id == kEmpty) {
            m_idString.clear();
            m_tag.clear();
            return;
        }
        char buf[16];
        std::snprintf(buf, sizeof(buf), "%u", callId);
        m_idString = buf;
        m_tag = "cid_" + m_idString + ZynIdentityTag(type);
    }
    void SetSessionTypeIdentity(int type) { SetIdentity(GetIdentityCallId(), type); }

    uint64_t GetIdentity() const { return m_identity; }
    uint32_t GetIdentityCallId() const { return static_cast<uint32_t>(m_identity & 0xFFFFFFFFu); }
    int GetIdentityType() const { return static_cast<int>((m_identity >> 32) & 0xF); }
    const std::string& GetIdString() const { return m_idString; }
    const std::string& GetIdentityTag() const { return m_tag; }

private:
    uint64_t m_identity = kEmpty;
    std::string m_idString;
    std::string m_tag;
};

// Trace lines of a connection, line or track end with the media tag, the call id and the object.
#define MS_TAIL(tag, callId) tag << " cid__" << (callId) << " this=" << static_cast<const void*>(this)
