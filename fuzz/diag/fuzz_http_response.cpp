// The HTTP response reader fed fuzzed bytes twice: in one piece and cut where the first byte of the
// input says. Both readings must agree (state, status, body length), stay within the reader's
// bounds, and a finished reading must not change with more bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "diag/TraceHttpObj.h"
#include "util/CmTrace.h"

namespace {

struct Reading {
    CTraceHttpObj::State state;
    int status;
    size_t body;
};

Reading Read(const char* data, size_t size, size_t piece, bool end)
{
    CTraceHttpObj reader;
    for (size_t at = 0; at < size && reader.GetState() == CTraceHttpObj::READING; at += piece)
        reader.Feed(data + at, piece < size - at ? piece : size - at);
    if (end) reader.FeedEnd();
    if (reader.GetBodyLength() > CTraceHttpObj::kMaxBody + 16 * 1024) abort();  // one read past the bound at most
    if (reader.GetHead().headers.size() > CTraceHttpObj::kMaxHeaders) abort();
    if (reader.GetState() == CTraceHttpObj::FAILED && reader.GetError().empty()) abort();
    const Reading r{reader.GetState(), reader.GetState() == CTraceHttpObj::COMPLETE ? reader.GetHead().statusCode : 0,
                    reader.GetState() == CTraceHttpObj::COMPLETE ? reader.GetBodyLength() : 0};
    if (r.state != CTraceHttpObj::READING && reader.Feed("X", 1) != r.state) abort();
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    set_external_trace_mask(-1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) return 0;
    const size_t piece = 1 + data[0] % 64;
    const bool end = (data[0] & 0x80) != 0;
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    const Reading whole = Read(bytes, size - 1, size - 1, end);
    const Reading cut = Read(bytes, size - 1, piece, end);
    // Where the reads cut the stream must not matter; a body bound crossed in a different read may
    // stop one reading a little later, but never with another verdict.
    if (whole.state != cut.state || whole.status != cut.status || whole.body != cut.body) abort();
    return 0;
}
