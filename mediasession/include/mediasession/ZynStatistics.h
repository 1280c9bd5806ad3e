// Machine, process and call-wide figures that the connection's statistics calls fill.
#pragma once

#include "mediasession/ZynDefines.h"

// CPU load. Percentages are of the whole machine (all cores together make 100) over the time since
// the connection's previous reading; the first reading of a connection gives the machine's average
// since boot and 0 for the process.
struct _tagZynCPUUsage {
    float fTotalUsage;        // the machine, in percent
    float fProcessUsage;      // this process, in percent (part of the total)
    uint32_t nCoreCount;      // logical processors online
    uint64_t uProcessCpuMs;   // CPU time this process used since it started (user + system)
};

// Memory of the machine and of this process.
struct _tagZynMemoryUsage {
    uint64_t uProcessMemoryBytes;  // resident set of this process
    uint64_t uUsedMemoryBytes;     // the machine's memory in use (total less available)
    uint64_t uTotalMemoryBytes;
    uint32_t uMemoryUsage;         // used of total, in percent
    float fProcessMemoryUsage;     // this process of total, in percent
};

// What all media lines of a connection carried together, summed over the lines' paths.
struct _tagZynAggregateNetworkMetricStats {
    uint32_t uLineCount;  // lines that have an engine session
    uint64_t uPacketsSent;
    uint64_t uPacketsReceived;
    uint64_t uBytesSent;
    uint64_t uBytesReceived;
    int64_t iPacketsLost;  // expected less received, over the lines' remote sources
    float fLossPercent;    // lost of expected over all lines
    float fMaxJitterMs;    // of the line with the most
    float fMaxRttMs;       // of the line with the longest; 0 until a far end reported
    float fKbpsIn;         // sum of the lines' receive rates
    uint64_t uSrtpFailures;
};

// Lip-sync figures of the remote video stream with one source (CSI), against its audio.
struct _tagSyncStatistics {
    uint32_t csi;
    uint32_t drop;      // frames dropped to catch up
    uint32_t sync;      // frames shown in sync
    uint32_t buffer;    // milliseconds held back for audio
    int32_t ahead;      // milliseconds video runs ahead of audio (negative: behind)
    uint32_t nosync;    // frames shown without an audio reference
    bool decideSyncPlay;
};

// What the application learnt of one received video stream, to colour its quality: the size it
// asked for, the size that arrives and the size it renders at (each width times height in pixels,
// 0 when unknown).
struct _tagDownLinkIndicationInfo {
    uint8_t vid;
    uint32_t wantedFrameSize;
    uint32_t receivedFrameSize;
    uint32_t renderedFrameSize;
};
