// The HTTP response reader: whole responses however the bytes are cut, chunked bodies, interim
// answers, and the broken servers a probe meets (garbage, half a response, a body without end).
#include <gtest/gtest.h>

#include <string>

#include "diag/TraceHttpObj.h"

namespace {

struct HttpCase {
    const char* name;
    std::string bytes;
    bool closeAfter;  // the server closes the connection after the bytes
    CTraceHttpObj::State want;
    int status;         // when complete
    size_t bodyLength;  // when complete
};

std::string Chunked(size_t chunks, size_t size)
{
    std::string out = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    char header[32];
    snprintf(header, sizeof(header), "%zx\r\n", size);
    for (size_t i = 0; i < chunks; ++i) out += header + std::string(size, 'x') + "\r\n";
    return out;
}

TEST(TraceHttpObjTest, ReadsResponsesAndFailsBrokenOnes)
{
    const std::string manyHeaders = [] {
        std::string s = "HTTP/1.1 200 OK\r\n";
        for (size_t i = 0; i <= CTraceHttpObj::kMaxHeaders; ++i) s += "X-" + std::to_string(i) + ": v\r\n";
        return s + "Content-Length: 0\r\n\r\n";
    }();
    const HttpCase cases[] = {
        {"content length", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", false, CTraceHttpObj::COMPLETE, 200, 5},
        {"not found is still an answer", "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n", false,
         CTraceHttpObj::COMPLETE, 404, 0},
        {"chunked", Chunked(3, 10) + "0\r\n\r\n", false, CTraceHttpObj::COMPLETE, 200, 30},
        {"chunked with trailer", Chunked(1, 4) + "0\r\nX-Sum: 1\r\n\r\n", false, CTraceHttpObj::COMPLETE, 200, 4},
        {"interim then final", "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 204 No Content\r\n\r\n", false,
         CTraceHttpObj::COMPLETE, 204, 0},
        {"ends at close", "HTTP/1.0 200 OK\r\n\r\nuntil the end", true, CTraceHttpObj::COMPLETE, 200, 13},
        {"bytes after the response are not read", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nxGARBAGE", false,
         CTraceHttpObj::COMPLETE, 200, 1},
        {"garbage", "SSH-2.0-OpenSSH_9.2\r\n", false, CTraceHttpObj::FAILED, 0, 0},
        {"binary garbage", std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc", 9), false, CTraceHttpObj::FAILED, 0, 0},
        {"half a head", "HTTP/1.1 200 OK\r\nContent-Le", true, CTraceHttpObj::FAILED, 0, 0},
        {"half a body", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort", true, CTraceHttpObj::FAILED, 0, 0},
        {"half a chunk", Chunked(1, 10).substr(0, 60), true, CTraceHttpObj::FAILED, 0, 0},
        {"still waiting", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort", false, CTraceHttpObj::READING, 0, 0},
        {"endless chunked body", Chunked(CTraceHttpObj::kMaxBody / 1000 + 1, 1000), false, CTraceHttpObj::FAILED, 0, 0},
        {"long body", "HTTP/1.1 200 OK\r\nContent-Length: 70000\r\n\r\n" + std::string(70000, 'b'), false,
         CTraceHttpObj::FAILED, 0, 0},
        {"head without end", "HTTP/1.1 200 OK\r\nX: " + std::string(CTraceHttpObj::kMaxHead, 'h'), false,
         CTraceHttpObj::FAILED, 0, 0},
        {"too many fields", manyHeaders, false, CTraceHttpObj::FAILED, 0, 0},
        {"bad chunk size", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", false, CTraceHttpObj::FAILED, 0, 0},
    };
    for (const auto& c : cases) {
        // In one piece, and byte by byte: where the reads cut the stream must not matter.
        for (size_t piece : {c.bytes.size(), size_t{1}}) {
            CTraceHttpObj reader;
            CTraceHttpObj::State state = CTraceHttpObj::READING;
            for (size_t at = 0; at < c.bytes.size() && state == CTraceHttpObj::READING; at += piece)
                state = reader.Feed(c.bytes.data() + at, std::min(piece, c.bytes.size() - at));
            if (c.closeAfter) state = reader.FeedEnd();
            EXPECT_EQ(c.want, state) << c.name << " piece=" << piece << " error=" << reader.GetError();
            if (c.want == CTraceHttpObj::FAILED) {
                EXPECT_FALSE(reader.GetError().empty()) << c.name;
            }
            if (c.want != CTraceHttpObj::COMPLETE) continue;
            EXPECT_EQ(c.status, reader.GetHead().statusCode) << c.name;
            EXPECT_EQ(c.bodyLength, reader.GetBodyLength()) << c.name;
            EXPECT_EQ(state, reader.Feed("more", 4)) << c.name << ": a finished response stays finished";
        }
    }
}

TEST(TraceHttpObjTest, KeepsTheHeadAsSent)
{
    const std::string bytes = "HTTP/1.1 301 Moved Permanently\r\nLocation: /x\r\nContent-Length: 0\r\n\r\n";
    CTraceHttpObj reader;
    // Cut inside the field name and inside the value.
    ASSERT_EQ(CTraceHttpObj::READING, reader.Feed(bytes.data(), 36));
    ASSERT_EQ(CTraceHttpObj::READING, reader.Feed(bytes.data() + 36, 7));
    ASSERT_EQ(CTraceHttpObj::COMPLETE, reader.Feed(bytes.data() + 43, bytes.size() - 43));
    const auto& head = reader.GetHead();
    EXPECT_EQ("Moved Permanently", head.reason);
    ASSERT_EQ(2u, head.headers.size());
    EXPECT_EQ("Location", head.headers[0].first);
    EXPECT_EQ("/x", head.headers[0].second);
    EXPECT_EQ(1, head.httpMajor);
    EXPECT_EQ(1, head.httpMinor);
    CTraceHttpObj chunked;
    ASSERT_EQ(CTraceHttpObj::COMPLETE, chunked.Feed((Chunked(4, 3) + "0\r\n\r\n").c_str(), Chunked(4, 3).size() + 5));
    EXPECT_EQ(5u, chunked.GetChunkCount()) << "four chunks and the last, empty one";
}

}  // namespace
