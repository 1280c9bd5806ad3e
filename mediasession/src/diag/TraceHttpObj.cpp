// Runs on the probe's thread.
#include "diag/TraceHttpObj.h"

namespace {

CTraceHttpObj* Self(http_parser* parser) { return static_cast<CTraceHttpObj*>(parser->data); }

}  // namespace

CTraceHttpObj::CTraceHttpObj()
{
    http_parser_init(&m_parser, HTTP_RESPONSE);
    m_parser.data = this;
    http_parser_settings_init(&m_settings);
    m_settings.on_status = &CTraceHttpObj::OnStatus;
    m_settings.on_header_field = &CTraceHttpObj::OnHeaderField;
    m_settings.on_header_value = &CTraceHttpObj::OnHeaderValue;
    m_settings.on_headers_complete = &CTraceHttpObj::OnHeadersComplete;
    m_settings.on_body = &CTraceHttpObj::OnBody;
    m_settings.on_chunk_header = &CTraceHttpObj::OnChunkHeader;
    m_settings.on_message_complete = &CTraceHttpObj::OnMessageComplete;
}

void CTraceHttpObj::Fail(std::string why)
{
    if (m_state != READING) return;
    m_state = FAILED;
    m_error = std::move(why);
}

bool CTraceHttpObj::CountHead(size_t length)
{
    m_headBytes += length;
    if (m_headBytes <= kMaxHead) return true;
    Fail("head too long");
    return false;
}

CTraceHttpObj::State CTraceHttpObj::Feed(const char* data, size_t length)
{
    if (m_state != READING || length == 0) return m_state;
    const size_t used = http_parser_execute(&m_parser, &m_settings, data, length);
    if (m_state != READING) return m_state;
    if (HTTP_PARSER_ERRNO(&m_parser) != HPE_OK) {
        Fail(http_errno_name(HTTP_PARSER_ERRNO(&m_parser)));
    } else if (m_parser.upgrade) {
        Fail("protocol upgrade");
    } else if (used != length) {
        Fail("unparsed bytes");
    }
    return m_state;
}

CTraceHttpObj::State CTraceHttpObj::FeedEnd()
{
    if (m_state != READING) return m_state;
    // A zero-length execute tells the parser the stream ended.
    http_parser_execute(&m_parser, &m_settings, nullptr, 0);
    if (m_state == READING) Fail(m_headComplete ? "body cut short" : "head cut short");
    return m_state;
}

int CTraceHttpObj::OnStatus(http_parser* parser, const char* at, size_t length)
{
    CTraceHttpObj* self = Self(parser);
    if (!self->CountHead(length)) return 1;
    self->m_head.reason.append(at, length);
    return 0;
}

int CTraceHttpObj::OnHeaderField(http_parser* parser, const char* at, size_t length)
{
    CTraceHttpObj* self = Self(parser);
    if (!self->CountHead(length)) return 1;
    auto& headers = self->m_head.headers;
    // A field arrives in pieces when it straddles two reads; a new one starts after a value.
    if (headers.empty() || self->m_inValue) {
        if (headers.size() >= kMaxHeaders) {
            self->Fail("too many header fields");
            return 1;
        }
        headers.emplace_back();
        self->m_inValue = false;
    }
    headers.back().first.append(at, length);
    return 0;
}

int CTraceHttpObj::OnHeaderValue(http_parser* parser, const char* at, size_t length)
{
    CTraceHttpObj* self = Self(parser);
    if (!self->CountHead(length)) return 1;
    auto& headers = self->m_head.headers;
    if (headers.empty()) headers.emplace_back();
    self->m_inValue = true;
    headers.back().second.append(at, length);
    return 0;
}

int CTraceHttpObj::OnHeadersComplete(http_parser* parser)
{
    CTraceHttpObj* self = Self(parser);
    self->m_head.httpMajor = parser->http_major;
    self->m_head.httpMinor = parser->http_minor;
    self->m_head.statusCode = static_cast<int>(parser->status_code);
    self->m_headComplete = true;
    return 0;
}

int CTraceHttpObj::OnBody(http_parser* parser, const char*, size_t length)
{
    CTraceHttpObj* self = Self(parser);
    self->m_bodyLength += length;
    if (self->m_bodyLength <= kMaxBody) return 0;
    self->Fail("body too long");
    return 1;
}

int CTraceHttpObj::OnChunkHeader(http_parser* parser)
{
    ++Self(parser)->m_chunks;
    return 0;
}

int CTraceHttpObj::OnMessageComplete(http_parser* parser)
{
    CTraceHttpObj* self = Self(parser);
    // An interim answer (100 Continue, 103 Early Hints) is followed by the real one: keep reading.
    if (self->m_head.statusCode >= 100 && self->m_head.statusCode < 200) {
        self->m_head = CCmHttpResponseHead();
        self->m_headComplete = false;
        self->m_inValue = false;
        self->m_bodyLength = 0;
        self->m_chunks = 0;
        return 0;
    }
    if (self->m_state == READING) self->m_state = COMPLETE;
    // Pause: whatever follows the response is not ours to read.
    http_parser_pause(parser, 1);
    return 0;
}
