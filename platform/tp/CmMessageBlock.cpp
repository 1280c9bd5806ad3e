#include "tp/CmMessageBlock.h"

#include <cstring>

CCmMessageBlock::CCmMessageBlock(size_t capacity)
    : m_data(std::make_unique<char[]>(capacity == 0 ? 1 : capacity)), m_capacity(capacity)
{
}

CCmMessageBlock::CCmMessageBlock(const void* data, size_t length) : CCmMessageBlock(length)
{
    if (data != nullptr && length > 0) memcpy(m_data.get(), data, length);
    m_write = length;
}

CCmMessageBlock::~CCmMessageBlock()
{
    // Unlink iteratively so that a long chain cannot exhaust the stack through nested destructors.
    std::unique_ptr<CCmMessageBlock> next = std::move(m_next);
    while (next) next = std::move(next->m_next);
}

CmResult CCmMessageBlock::AdvanceTopLevelWritePtr(size_t count)
{
    if (count > GetTopLevelSpace()) return CM_ERROR_INVALID_ARG;
    m_write += count;
    return CM_OK;
}

CmResult CCmMessageBlock::AdvanceTopLevelReadPtr(size_t count)
{
    if (count > GetTopLevelLength()) return CM_ERROR_INVALID_ARG;
    m_read += count;
    return CM_OK;
}

void CCmMessageBlock::Reset()
{
    m_read = m_write = 0;
    std::unique_ptr<CCmMessageBlock> next = std::move(m_next);
    while (next) next = std::move(next->m_next);
}

CmResult CCmMessageBlock::Write(const void* data, size_t length)
{
    if (length == 0) return CM_OK;
    if (data == nullptr) return CM_ERROR_NULL_POINTER;
    if (length > GetTopLevelSpace()) return CM_ERROR_INVALID_ARG;
    memcpy(m_data.get() + m_write, data, length);
    m_write += length;
    return CM_OK;
}

CmResult CCmMessageBlock::Read(void* data, size_t length)
{
    if (length == 0) return CM_OK;
    if (data == nullptr) return CM_ERROR_NULL_POINTER;
    if (length > GetChainedLength()) return CM_ERROR_INVALID_ARG;
    char* out = static_cast<char*>(data);
    for (CCmMessageBlock* block = this; length > 0 && block != nullptr; block = block->m_next.get()) {
        const size_t take = length < block->GetTopLevelLength() ? length : block->GetTopLevelLength();
        if (take == 0) continue;
        memcpy(out, block->GetTopLevelReadPtr(), take);
        block->m_read += take;
        out += take;
        length -= take;
    }
    return CM_OK;
}

CmResult CCmMessageBlock::Append(std::unique_ptr<CCmMessageBlock> next)
{
    if (!next) return CM_ERROR_NULL_POINTER;
    CCmMessageBlock* tail = this;
    while (tail->m_next) tail = tail->m_next.get();
    tail->m_next = std::move(next);
    return CM_OK;
}

size_t CCmMessageBlock::GetChainedLength() const
{
    size_t total = 0;
    for (const CCmMessageBlock* block = this; block != nullptr; block = block->m_next.get())
        total += block->GetTopLevelLength();
    return total;
}

std::unique_ptr<CCmMessageBlock> CCmMessageBlock::DuplicateChained() const
{
    auto head = std::make_unique<CCmMessageBlock>(GetTopLevelReadPtr(), GetTopLevelLength());
    CCmMessageBlock* tail = head.get();
    for (const CCmMessageBlock* block = m_next.get(); block != nullptr; block = block->m_next.get()) {
        tail->m_next = std::make_unique<CCmMessageBlock>(block->GetTopLevelReadPtr(), block->GetTopLevelLength());
        tail = tail->m_next.get();
    }
    return head;
}

std::unique_ptr<CCmMessageBlock> CCmMessageBlock::FlattenChained() const
{
    auto flat = std::make_unique<CCmMessageBlock>(GetChainedLength());
    for (const CCmMessageBlock* block = this; block != nullptr; block = block->m_next.get()) {
        // Cannot fail: the capacity is the sum of the lengths.
        flat->Write(block->GetTopLevelReadPtr(), block->GetTopLevelLength());
    }
    return flat;
}
