// A packet buffer: owned bytes with a read position and a write position (read <= write <= capacity),
// and an optional chain of further blocks that together form one message.
//
//   [ consumed | readable (GetTopLevelLength) | free space (GetTopLevelSpace) ]
//   0          read                           write                          capacity
//
// Every move of a position is bounds-checked: a request past the end is refused with
// CM_ERROR_INVALID_ARG and changes nothing. A block owns the blocks chained after it.
// Not thread-safe: a block belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>

#include "tp/CmDefines.h"

class CCmMessageBlock {
public:
    // An empty block with room for `capacity` bytes.
    explicit CCmMessageBlock(size_t capacity);
    // A block holding a copy of `length` bytes (all readable). A null `data` gives zero-filled bytes.
    CCmMessageBlock(const void* data, size_t length);
    ~CCmMessageBlock();
    CCmMessageBlock(const CCmMessageBlock&) = delete;
    CCmMessageBlock& operator=(const CCmMessageBlock&) = delete;

    // This block only, not the chain.
    char* GetTopLevelReadPtr() { return m_data.get() + m_read; }
    const char* GetTopLevelReadPtr() const { return m_data.get() + m_read; }
    char* GetTopLevelWritePtr() { return m_data.get() + m_write; }
    size_t GetTopLevelLength() const { return m_write - m_read; }
    size_t GetTopLevelSpace() const { return m_capacity - m_write; }
    size_t GetCapacity() const { return m_capacity; }
    // After writing into GetTopLevelWritePtr() directly.
    CmResult AdvanceTopLevelWritePtr(size_t count);
    // After consuming from GetTopLevelReadPtr() directly.
    CmResult AdvanceTopLevelReadPtr(size_t count);

    // Empties the block for reuse: read and write back at 0, the chain dropped. The bytes stay.
    void Reset();

    // Appends to this block's free space; all or nothing.
    CmResult Write(const void* data, size_t length);
    // Consumes `length` bytes from the front of the message, across chained blocks; all or nothing
    // (fewer readable bytes than asked for is refused).
    CmResult Read(void* data, size_t length);

    // Chaining: `next` goes at the end of the chain and is owned from then on. Null is refused.
    CmResult Append(std::unique_ptr<CCmMessageBlock> next);
    CCmMessageBlock* GetNext() { return m_next.get(); }
    const CCmMessageBlock* GetNext() const { return m_next.get(); }
    // Readable bytes of this block and all chained ones.
    size_t GetChainedLength() const;

    // A deep copy of the readable bytes of every block of the chain, keeping the chain's shape.
    std::unique_ptr<CCmMessageBlock> DuplicateChained() const;
    // One new block holding the readable bytes of the whole chain, in order.
    std::unique_ptr<CCmMessageBlock> FlattenChained() const;

private:
    std::unique_ptr<char[]> m_data;
    size_t m_capacity = 0;
    size_t m_read = 0;
    size_t m_write = 0;
    std::unique_ptr<CCmMessageBlock> m_next;
};
