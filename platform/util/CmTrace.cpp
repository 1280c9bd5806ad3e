#include "util/CmTrace.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

void StderrSink(void*, int level, const char* module, const char* text, unsigned int length)
{
    // One fprintf per line keeps lines whole when threads trace at once.
    std::fprintf(stderr, "[%d][%s] %.*s\n", level, module ? module : "", static_cast<int>(length), text);
}

int InitialMask()
{
    const char* env = std::getenv("MEDIASESSION_TRACE_LEVEL");
    if (!env || !*env) return CM_TRACE_LEVEL_WARNING;
    char* end = nullptr;
    long v = std::strtol(env, &end, 10);
    if (end == env) return CM_TRACE_LEVEL_WARNING;
    return static_cast<int>(v < -1 ? -1 : (v > 3 ? 3 : v));
}

struct SinkSlot {
    std::atomic<CmTraceSinkFn> sink{&StderrSink};
    std::atomic<void*> context{nullptr};
};

SinkSlot& Slot()
{
    static SinkSlot slot;
    return slot;
}

std::atomic<int>& Mask()
{
    static std::atomic<int> mask{InitialMask()};
    return mask;
}

std::atomic<uint64_t> g_assertions{0};

}  // namespace

void set_external_trace_sink(CmTraceSinkFn sink, void* context)
{
    Slot().context.store(context);
    Slot().sink.store(sink ? sink : &StderrSink);
}

int get_external_trace_mask() { return Mask().load(std::memory_order_relaxed); }
void set_external_trace_mask(int mask) { Mask().store(mask); }

void util_adapter_trace(unsigned long level, const char* module, const char* text, unsigned int length)
{
    Slot().sink.load()(Slot().context.load(), static_cast<int>(level), module, text ? text : "", text ? length : 0);
}

void cm_assertion_report() { g_assertions.fetch_add(1); }
uint64_t cm_assertion_count() { return g_assertions.load(); }

const char* cm_source_basename(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

CCmTextFormator::CCmTextFormator(char* buffer, size_t size) : m_buffer(buffer), m_size(size)
{
    if (m_size) m_buffer[0] = '\0';
}

void CCmTextFormator::Append(const char* data, size_t length)
{
    if (m_size == 0) return;
    size_t room = m_size - 1 - m_length;
    size_t n = length < room ? length : room;
    std::memcpy(m_buffer + m_length, data, n);
    m_length += n;
    m_buffer[m_length] = '\0';
}

CCmTextFormator& CCmTextFormator::operator<<(const char* text)
{
    if (!text) text = "(null)";
    Append(text, std::strlen(text));
    return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(std::string_view text)
{
    Append(text.data(), text.size());
    return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(char c)
{
    Append(&c, 1);
    return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(bool value)
{
    return *this << (value ? "1" : "0");
}

CCmTextFormator& CCmTextFormator::AppendSigned(long long value)
{
    char tmp[24];
    int n = std::snprintf(tmp, sizeof(tmp), "%lld", value);
    Append(tmp, static_cast<size_t>(n));
    return *this;
}

CCmTextFormator& CCmTextFormator::AppendUnsigned(unsigned long long value)
{
    char tmp[24];
    int n = std::snprintf(tmp, sizeof(tmp), "%llu", value);
    Append(tmp, static_cast<size_t>(n));
    return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(double value)
{
    char tmp[40];
    int n = std::snprintf(tmp, sizeof(tmp), "%g", value);
    Append(tmp, static_cast<size_t>(n));
    return *this;
}

CCmTextFormator& CCmTextFormator::operator<<(const void* pointer)
{
    char tmp[24];
    int n = std::snprintf(tmp, sizeof(tmp), "%p", pointer);
    Append(tmp, static_cast<size_t>(n));
    return *this;
}

CCmUtilFuncTracer::CCmUtilFuncTracer(const char* module, const char* text, unsigned int length)
    : m_module(module)
{
    if (get_external_trace_mask() < CM_TRACE_LEVEL_INFO) return;
    m_text.assign(text, length);
    std::string line = m_text + " enter";
    util_adapter_trace(CM_TRACE_LEVEL_INFO, m_module, line.c_str(), static_cast<unsigned int>(line.size()));
}

CCmUtilFuncTracer::~CCmUtilFuncTracer()
{
    if (m_text.empty() || get_external_trace_mask() < CM_TRACE_LEVEL_INFO) return;
    std::string line = m_text + " leave";
    util_adapter_trace(CM_TRACE_LEVEL_INFO, m_module, line.c_str(), static_cast<unsigned int>(line.size()));
}

CCmTbqTrace* CCmTbqTrace::instance()
{
    static CCmTbqTrace trace;
    return &trace;
}

void CCmTbqTrace::Init()
{
    // The mask and sink are ready from first use; re-reading the environment lets a process that
    // changed MEDIASESSION_TRACE_LEVEL before a new engine init see it.
    static std::once_flag once;
    std::call_once(once, [] { (void)get_external_trace_mask(); });
}
