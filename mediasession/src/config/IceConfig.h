// The ICE pieces a media configuration embeds: the local and the remote credentials and
// candidates of its line, and what ICE concluded. The line fills them; the application reads them.
#pragma once

#include <string>
#include <vector>

#include "mediasession/ZynMediaConfig.h"

namespace zyn {

class IMediaConfigOwner;

class CIceConfig final : public IIceConfig {
public:
    const char* GetUserName() const override { return m_userName.c_str(); }
    const char* GetPassword() const override { return m_password.c_str(); }
    unsigned int GetCandidateCount() const override { return static_cast<unsigned int>(m_candidates.size()); }
    const char* GetCandidate(unsigned int index) const override
    {
        return index < m_candidates.size() ? m_candidates[index].c_str() : nullptr;
    }

    void SetCredentials(std::string userName, std::string password)
    {
        m_userName = std::move(userName);
        m_password = std::move(password);
    }
    void AddCandidate(std::string candidate) { m_candidates.push_back(std::move(candidate)); }
    const std::vector<std::string>& GetCandidates() const { return m_candidates; }
    // Both credentials and every candidate.
    void Clear()
    {
        m_userName.clear();
        m_password.clear();
        m_candidates.clear();
    }

private:
    std::string m_userName;
    std::string m_password;
    std::vector<std::string> m_candidates;
};

class CIceConcludedConfig final : public IIceConcludedConfig {
public:
    explicit CIceConcludedConfig(IMediaConfigOwner* line) : m_pLine(line) {}

    const char* GetConcludedDescription() const override { return m_concluded.c_str(); }
    void SetConcludedDescription(std::string text) { m_concluded = std::move(text); }
    IMediaConfigOwner* GetLine() const { return m_pLine; }

private:
    IMediaConfigOwner* m_pLine;  // not owned
    std::string m_concluded;
};

}  // namespace zyn
