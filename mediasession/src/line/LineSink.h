// Inside a line's event handlers: the application's sink, or return where it is gone.
#pragma once

#define LINE_SINK_OR_RETURN(sink)                                                   \
    IZynMediaConnectionSink* sink = m_sink ? m_sink->GetSink() : nullptr;          \
    if (!(sink)) return
