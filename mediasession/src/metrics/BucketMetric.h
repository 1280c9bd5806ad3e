// Counts of samples by value range, for the distributions of the metrics document.
// Not thread safe: the owner guards it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "util/CmJson.h"

// One range (min, max] and how many samples fell in it.
class CBaseBucket {
public:
    CBaseBucket(int32_t min, int32_t max) : m_min(min), m_max(max) {}
    virtual ~CBaseBucket() = default;
    virtual void CheckAdd(int) { ++m_count; }
    // {"min", "max", "duration"}: with a sample a second, the count is the time spent in the range.
    virtual json::Value GetValue() const;
    virtual std::string GetKey() const { return std::to_string(m_min) + "_" + std::to_string(m_max); }
    uint64_t GetCount() const { return m_count; }
    int32_t GetMin() const { return m_min; }
    int32_t GetMax() const { return m_max; }

protected:
    int32_t m_min;
    int32_t m_max;
    uint64_t m_count = 0;
};

// A bucket whose count is set rather than added to: {"min", "count"}.
class CCountBucket : public CBaseBucket {
public:
    using CBaseBucket::CBaseBucket;
    void SetCount(unsigned long count) { m_count = count; }
    json::Value GetValue() const override;
};

// One bucket between each pair of neighbouring bounds, which must increase.
class CBucketMetric {
public:
    CBucketMetric(std::initializer_list<int> bounds);
    // The index i with bounds[i] < value <= bounds[i + 1]; all ones when none fits.
    size_t GetBucketIndex(int value) const;
    // Values outside every bucket are not counted.
    void Kick(int value);
    uint64_t GetTotalCount() const;
    json::Value GetBucketsAsJsonArray() const;

private:
    std::vector<CBaseBucket> m_buckets;
};
