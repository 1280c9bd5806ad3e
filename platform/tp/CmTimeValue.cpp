#include "tp/CmTimeValue.h"

#include <chrono>

const CCmTimeValue CCmTimeValue::s_tvZero{};

void CCmTimeValue::Set(int64_t sec, int64_t usec)
{
    int64_t total = sec * 1000000 + usec;
    m_sec = total / 1000000;
    m_usec = total % 1000000;
}

CCmTimeValue CCmTimeValue::GetTimeOfDay()
{
    auto us = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch()).count();
    return CCmTimeValue(0, us);
}

CCmTimeValue CCmTimeValue::GetMonotonic()
{
    auto us = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch()).count();
    return CCmTimeValue(0, us);
}
