// Counts every operator new and every allocation OpenSSL makes, in the process and on each thread,
// for the tests that prove a path allocates nothing. It replaces the global allocation functions and defines main(): include it
// in exactly one source file of a test binary built without gtest_main (ms_noheap_test).
#pragma once

#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace heap_count {

inline std::atomic<long> news{0};
inline std::atomic<long> cryptoAllocs{0};
// The same, made on the calling thread only: for a path that runs on one thread while the
// library's other threads go on with their own work.
inline thread_local long threadNews = 0;
inline thread_local long threadCryptoAllocs = 0;

inline void* CountingMalloc(size_t n, const char*, int)
{
    ++cryptoAllocs;
    ++threadCryptoAllocs;
    return std::malloc(n);
}
inline void* CountingRealloc(void* p, size_t n, const char*, int)
{
    ++cryptoAllocs;
    ++threadCryptoAllocs;
    return std::realloc(p, n);
}
inline void CountingFree(void* p, const char*, int) { std::free(p); }

}  // namespace heap_count

void* operator new(size_t n)
{
    ++heap_count::news;
    ++heap_count::threadNews;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

// OpenSSL takes its allocation functions only before its first allocation.
int main(int argc, char** argv)
{
    CRYPTO_set_mem_functions(heap_count::CountingMalloc, heap_count::CountingRealloc, heap_count::CountingFree);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
