// Trace and assertion layer shared by every subsystem above the pure libraries.
//
// A line is formatted into a fixed 1024-byte buffer with CCmTextFormator and handed to
// util_adapter_trace() only when get_external_trace_mask() admits its level; the mask is tested
// first so that a disabled line costs one load and one compare.
//
// Levels: 0 error, 1 warning, 2 information, 3 detail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

enum CmTraceLevel : int {
    CM_TRACE_LEVEL_ERROR = 0,
    CM_TRACE_LEVEL_WARNING = 1,
    CM_TRACE_LEVEL_INFO = 2,
    CM_TRACE_LEVEL_DETAIL = 3,
};

// Where finished lines go. The default sink writes "[level][module] text" to stderr.
// Any thread may call the sink; it must be safe for concurrent use.
using CmTraceSinkFn = void (*)(void* context, int level, const char* module, const char* text, unsigned int length);

// Installs a sink (null restores the stderr sink). Lines that race with the switch go to either.
void set_external_trace_sink(CmTraceSinkFn sink, void* context);

// The highest level that is written. Initial value: MEDIASESSION_TRACE_LEVEL from the environment,
// else 1 (errors and warnings).
int get_external_trace_mask();
void set_external_trace_mask(int mask);

void util_adapter_trace(unsigned long level, const char* module, const char* text, unsigned int length);

// Called after an assertion line was written. Counts the report; never aborts.
void cm_assertion_report();
uint64_t cm_assertion_count();

// Formats into a caller-provided buffer; output past the end is dropped, never overrun.
class CCmTextFormator {
public:
    CCmTextFormator(char* buffer, size_t size);

    CCmTextFormator& operator<<(const char* text);
    CCmTextFormator& operator<<(std::string_view text);
    CCmTextFormator& operator<<(const std::string& text) { return *this << std::string_view(text); }
    CCmTextFormator& operator<<(char c);
    CCmTextFormator& operator<<(bool value);
    CCmTextFormator& operator<<(int value) { return AppendSigned(value); }
    CCmTextFormator& operator<<(long value) { return AppendSigned(value); }
    CCmTextFormator& operator<<(long long value) { return AppendSigned(value); }
    CCmTextFormator& operator<<(unsigned int value) { return AppendUnsigned(value); }
    CCmTextFormator& operator<<(unsigned long value) { return AppendUnsigned(value); }
    CCmTextFormator& operator<<(unsigned long long value) { return AppendUnsigned(value); }
    CCmTextFormator& operator<<(short value) { return AppendSigned(value); }
    CCmTextFormator& operator<<(unsigned short value) { return AppendUnsigned(value); }
    CCmTextFormator& operator<<(unsigned char value) { return AppendUnsigned(value); }
    CCmTextFormator& operator<<(double value);
    CCmTextFormator& operator<<(const void* pointer);

    const char* c_str() const { return m_buffer; }
    unsigned int tell() const { return static_cast<unsigned int>(m_length); }
    operator char*() const { return m_buffer; }

private:
    CCmTextFormator& AppendSigned(long long value);
    CCmTextFormator& AppendUnsigned(unsigned long long value);
    void Append(const char* data, size_t length);

    char* m_buffer;
    size_t m_size;
    size_t m_length = 0;
};

// Traces "<text> enter" on construction and "<text> leave" on destruction at level 2.
class CCmUtilFuncTracer {
public:
    CCmUtilFuncTracer(const char* module, const char* text, unsigned int length);
    ~CCmUtilFuncTracer();
    CCmUtilFuncTracer(const CCmUtilFuncTracer&) = delete;
    CCmUtilFuncTracer& operator=(const CCmUtilFuncTracer&) = delete;

private:
    const char* m_module;
    std::string m_text;
};

// Tracing must tolerate repeated Init() (every engine init calls it).
class CCmTbqTrace {
public:
    static CCmTbqTrace* instance();
    void Init();
};

#define CM_TRACE_MODULE(level, module, str)                                                        \
    do {                                                                                           \
        if (get_external_trace_mask() >= (level)) {                                                \
            char cm_trace_buf_[1024];                                                              \
            CCmTextFormator cm_trace_fmt_(cm_trace_buf_, sizeof(cm_trace_buf_));                   \
            cm_trace_fmt_ << str;                                                                  \
            util_adapter_trace((level), (module), cm_trace_fmt_.c_str(), cm_trace_fmt_.tell());   \
        }                                                                                          \
    } while (0)

#define CM_FUNC_TRACE_MODULE(module, str)                                                          \
    char cm_func_buf_[1024];                                                                       \
    CCmTextFormator cm_func_fmt_(cm_func_buf_, sizeof(cm_func_buf_));                              \
    if (get_external_trace_mask() >= CM_TRACE_LEVEL_INFO) cm_func_fmt_ << str;                     \
    CCmUtilFuncTracer cm_func_tracer_((module), cm_func_fmt_.c_str(), cm_func_fmt_.tell())

#define MS_MODULE "MediaSession"
#define MS_ERROR_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_ERROR, MS_MODULE, str)
#define MS_WARNING_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_WARNING, MS_MODULE, str)
#define MS_INFO_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_INFO, MS_MODULE, str)
#define MS_DETAIL_TRACE(str) CM_TRACE_MODULE(CM_TRACE_LEVEL_DETAIL, MS_MODULE, str)
#define MS_FUNC_TRACE(str) CM_FUNC_TRACE_MODULE(MS_MODULE, str)

const char* cm_source_basename(const char* path);

// Assertion: "<source>:<line> Assert failed: <expr>" at level 0, then cm_assertion_report().
// Execution always goes on.
#define CM_ASSERT_REPORT(text)                                                                     \
    do {                                                                                           \
        CM_TRACE_MODULE(CM_TRACE_LEVEL_ERROR, MS_MODULE,                                           \
                        cm_source_basename(__FILE__) << ":" << __LINE__ << " Assert failed: " << text); \
        cm_assertion_report();                                                                     \
    } while (0)

#define CM_ASSERTE(expr)                                                                           \
    do {                                                                                           \
        if (!(expr)) CM_ASSERT_REPORT(#expr);                                                      \
    } while (0)

#define CM_ASSERTE_RETURN(expr, rv)                                                                \
    do {                                                                                           \
        if (!(expr)) {                                                                             \
            CM_ASSERT_REPORT(#expr);                                                               \
            return rv;                                                                             \
        }                                                                                          \
    } while (0)

#define CM_ASSERTE_RETURN_VOID(expr)                                                               \
    do {                                                                                           \
        if (!(expr)) {                                                                             \
            CM_ASSERT_REPORT(#expr);                                                               \
            return;                                                                                \
        }                                                                                          \
    } while (0)
