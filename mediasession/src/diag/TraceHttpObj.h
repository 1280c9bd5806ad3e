// Reads the HTTP response a reachability probe gets back, with a kept parser (http-parser) and its
// chunked decoding, within bounds: a head over kMaxHead bytes or kMaxHeaders fields, or a body over
// kMaxBody bytes, fails the response instead of growing without end. The body is counted, not kept.
//
// No thread of its own: one reader belongs to one probe, on the probe's thread.
#pragma once

#include <http_parser.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

struct CCmHttpResponseHead {
    int httpMajor = 0;
    int httpMinor = 0;
    int statusCode = 0;
    std::string reason;
    std::vector<std::pair<std::string, std::string>> headers;
};

class CTraceHttpObj {
public:
    enum State { READING, COMPLETE, FAILED };

    static constexpr size_t kMaxHead = 16 * 1024;
    static constexpr size_t kMaxHeaders = 100;
    static constexpr size_t kMaxBody = 64 * 1024;

    CTraceHttpObj();
    CTraceHttpObj(const CTraceHttpObj&) = delete;
    CTraceHttpObj& operator=(const CTraceHttpObj&) = delete;

    // Bytes of the response as they arrive. Once COMPLETE or FAILED, more bytes change nothing.
    State Feed(const char* data, size_t length);
    // The connection closed: a response whose end is the close is complete now, any other is cut short.
    State FeedEnd();

    State GetState() const { return m_state; }
    bool IsHeadComplete() const { return m_headComplete; }
    const CCmHttpResponseHead& GetHead() const { return m_head; }
    size_t GetBodyLength() const { return m_bodyLength; }
    size_t GetChunkCount() const { return m_chunks; }
    // Why it failed (the parser's error name, or the bound that was crossed).
    const std::string& GetError() const { return m_error; }

private:
    static int OnStatus(http_parser* parser, const char* at, size_t length);
    static int OnHeaderField(http_parser* parser, const char* at, size_t length);
    static int OnHeaderValue(http_parser* parser, const char* at, size_t length);
    static int OnHeadersComplete(http_parser* parser);
    static int OnBody(http_parser* parser, const char* at, size_t length);
    static int OnChunkHeader(http_parser* parser);
    static int OnMessageComplete(http_parser* parser);
    bool CountHead(size_t length);
    void Fail(std::string why);

    http_parser m_parser;
    http_parser_settings m_settings;
    State m_state = READING;
    bool m_headComplete = false;
    bool m_inValue = false;
    size_t m_headBytes = 0;
    size_t m_bodyLength = 0;
    size_t m_chunks = 0;
    CCmHttpResponseHead m_head;
    std::string m_error;
};
