#include "metrics/BucketMetric.h"

json::Value CBaseBucket::GetValue() const
{
    return json::Value{{"min", m_min}, {"max", m_max}, {"duration", m_count}};
}

json::Value CCountBucket::GetValue() const
{
    return json::Value{{"min", m_min}, {"count", m_count}};
}

CBucketMetric::CBucketMetric(std::initializer_list<int> bounds)
{
    const int* previous = nullptr;
    for (const int& bound : bounds) {
        if (previous) m_buckets.emplace_back(*previous, bound);
        previous = &bound;
    }
}

size_t CBucketMetric::GetBucketIndex(int value) const
{
    for (size_t i = 0; i < m_buckets.size(); ++i)
        if (m_buckets[i].GetMin() < value && value <= m_buckets[i].GetMax()) return i;
    return static_cast<size_t>(-1);
}

void CBucketMetric::Kick(int value)
{
    const size_t index = GetBucketIndex(value);
    if (index < m_buckets.size()) m_buckets[index].CheckAdd(value);
}

uint64_t CBucketMetric::GetTotalCount() const
{
    uint64_t total = 0;
    for (const CBaseBucket& bucket : m_buckets) total += bucket.GetCount();
    return total;
}

json::Value CBucketMetric::GetBucketsAsJsonArray() const
{
    json::Value out = json::Value::array();
    for (const CBaseBucket& bucket : m_buckets) out.push_back(bucket.GetValue());
    return out;
}
