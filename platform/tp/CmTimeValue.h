// Seconds plus microseconds, always normalised so that 0 <= usec < 1e6 (or both parts <= 0).
#pragma once

#include <compare>
#include <cstdint>

class CCmTimeValue {
public:
    CCmTimeValue() = default;
    CCmTimeValue(int64_t sec, int64_t usec = 0) { Set(sec, usec); }
    static CCmTimeValue FromMilliseconds(int64_t ms) { return CCmTimeValue(0, ms * 1000); }

    // Wall clock (for stamps) and a monotonic clock (for intervals and timers).
    static CCmTimeValue GetTimeOfDay();
    static CCmTimeValue GetMonotonic();

    void Set(int64_t sec, int64_t usec);
    int64_t GetSec() const { return m_sec; }
    int64_t GetUsec() const { return m_usec; }
    int64_t GetTotalInMsec() const { return m_sec * 1000 + m_usec / 1000; }
    int64_t GetTotalInUsec() const { return m_sec * 1000000 + m_usec; }

    CCmTimeValue& operator+=(const CCmTimeValue& o) { Set(m_sec + o.m_sec, m_usec + o.m_usec); return *this; }
    CCmTimeValue& operator-=(const CCmTimeValue& o) { Set(m_sec - o.m_sec, m_usec - o.m_usec); return *this; }
    friend CCmTimeValue operator+(CCmTimeValue a, const CCmTimeValue& b) { return a += b; }
    friend CCmTimeValue operator-(CCmTimeValue a, const CCmTimeValue& b) { return a -= b; }
    friend bool operator==(const CCmTimeValue& a, const CCmTimeValue& b) = default;
    friend auto operator<=>(const CCmTimeValue& a, const CCmTimeValue& b)
    {
        return a.GetTotalInUsec() <=> b.GetTotalInUsec();
    }

    static const CCmTimeValue s_tvZero;

private:
    int64_t m_sec = 0;
    int64_t m_usec = 0;
};
