// Bounded string and memory helpers; the contract of each is in mediasession/safe_lib.h.
#include "mediasession/safe_lib.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

void IgnoreConstraint(const char*, void*, errno_t) {}

std::atomic<constraint_handler_t> g_handler{&IgnoreConstraint};

// Reports "vorta_<fn>: <what>" to the handler and returns the code.
errno_t Violation(const char* fn, const char* what, errno_t code)
{
    char message[128];
    snprintf(message, sizeof(message), "vorta_%s: %s", fn, what);
    g_handler.load(std::memory_order_acquire)(message, nullptr, code);
    return code;
}

// Whether [a, a + alen) and [b, b + blen) share a byte. Compared as integers: relational operators
// on pointers into different objects are undefined.
bool Overlap(const void* a, size_t alen, const void* b, size_t blen)
{
    const auto pa = reinterpret_cast<uintptr_t>(a);
    const auto pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + blen && pb < pa + alen;
}

// Checks shared by every function that writes into (dest, dmax). Returns EOK when the destination
// is usable.
errno_t CheckDest(const char* fn, const void* dest, rsize_t dmax)
{
    if (dest == nullptr) return Violation(fn, "dest is null", ESNULLP);
    if (dmax == 0) return Violation(fn, "dmax is 0", ESZEROL);
    if (dmax > VORTA_RSIZE_MAX) return Violation(fn, "dmax exceeds max", ESLEMAX);
    return EOK;
}

// Stops the compiler from dropping a fill of memory that is not read afterwards (a cleared secret).
void KeepWrites(void* p) { __asm__ __volatile__("" : : "r"(p) : "memory"); }

errno_t StringCompare(const char* name, const char* dest, rsize_t dmax, const char* src, int* indicator,
                      bool ignoreCase)
{
    if (indicator == nullptr) return Violation(name, "indicator is null", ESNULLP);
    *indicator = 0;
    if (dest == nullptr) return Violation(name, "dest is null", ESNULLP);
    if (src == nullptr) return Violation(name, "src is null", ESNULLP);
    if (dmax == 0) return Violation(name, "dmax is 0", ESZEROL);
    if (dmax > VORTA_RSIZE_MAX) return Violation(name, "dmax exceeds max", ESLEMAX);
    for (rsize_t i = 0; i < dmax; ++i) {
        int a = static_cast<unsigned char>(dest[i]);
        int b = static_cast<unsigned char>(src[i]);
        if (ignoreCase) {
            if (a >= 'A' && a <= 'Z') a += 'a' - 'A';
            if (b >= 'A' && b <= 'Z') b += 'a' - 'A';
        }
        if (a != b) {
            *indicator = a - b;
            break;
        }
        if (a == 0) break;
    }
    return EOK;
}

errno_t MemCopy(const char* fn, void* dest, rsize_t dmax, const void* src, rsize_t slen, bool allowOverlap)
{
    const errno_t rc = CheckDest(fn, dest, dmax);
    if (rc != EOK) return rc;
    errno_t fail = EOK;
    const char* what = nullptr;
    if (src == nullptr) {
        fail = ESNULLP;
        what = "src is null";
    } else if (slen > VORTA_RSIZE_MAX) {
        fail = ESLEMAX;
        what = "slen exceeds max";
    } else if (slen > dmax) {
        fail = ESNOSPC;
        what = "slen exceeds dmax";
    } else if (!allowOverlap && Overlap(dest, slen, src, slen)) {
        fail = ESOVRLP;
        what = "overlap";
    }
    if (fail != EOK) {
        memset(dest, 0, dmax);
        return Violation(fn, what, fail);
    }
    if (slen > 0) memmove(dest, src, slen);
    return EOK;
}

}  // namespace

constraint_handler_t safe_lib_set_constraint_handler(constraint_handler_t handler)
{
    constraint_handler_t previous =
        g_handler.exchange(handler != nullptr ? handler : &IgnoreConstraint, std::memory_order_acq_rel);
    return previous == &IgnoreConstraint ? nullptr : previous;
}

errno_t vorta_strcpy_s(char* dest, rsize_t dmax, const char* src)
{
    const errno_t rc = CheckDest("strcpy_s", dest, dmax);
    if (rc != EOK) return rc;
    if (src == nullptr) {
        dest[0] = '\0';
        return Violation("strcpy_s", "src is null", ESNULLP);
    }
    const rsize_t slen = strnlen(src, dmax);
    if (slen == dmax) {
        dest[0] = '\0';
        return Violation("strcpy_s", "not enough space for src", ESNOSPC);
    }
    if (Overlap(dest, slen + 1, src, slen + 1)) {
        dest[0] = '\0';
        return Violation("strcpy_s", "overlapping objects", ESOVRLP);
    }
    memcpy(dest, src, slen + 1);
    return EOK;
}

errno_t vorta_strncpy_s(char* dest, rsize_t dmax, const char* src, rsize_t slen)
{
    const errno_t rc = CheckDest("strncpy_s", dest, dmax);
    if (rc != EOK) return rc;
    if (src == nullptr) {
        dest[0] = '\0';
        return Violation("strncpy_s", "src is null", ESNULLP);
    }
    if (slen > VORTA_RSIZE_MAX) {
        dest[0] = '\0';
        return Violation("strncpy_s", "slen exceeds max", ESLEMAX);
    }
    const rsize_t n = strnlen(src, slen);
    if (n >= dmax) {
        dest[0] = '\0';
        return Violation("strncpy_s", "not enough space for src", ESNOSPC);
    }
    if (Overlap(dest, n + 1, src, n)) {
        dest[0] = '\0';
        return Violation("strncpy_s", "overlapping objects", ESOVRLP);
    }
    memcpy(dest, src, n);
    dest[n] = '\0';
    return EOK;
}

errno_t vorta_strcat_s(char* dest, rsize_t dmax, const char* src)
{
    const errno_t rc = CheckDest("strcat_s", dest, dmax);
    if (rc != EOK) return rc;
    if (src == nullptr) {
        dest[0] = '\0';
        return Violation("strcat_s", "src is null", ESNULLP);
    }
    const rsize_t dlen = strnlen(dest, dmax);
    if (dlen == dmax) {
        dest[0] = '\0';
        return Violation("strcat_s", "dest is unterminated", ESUNTERM);
    }
    const rsize_t room = dmax - dlen;
    const rsize_t slen = strnlen(src, room);
    if (slen == room) {
        dest[0] = '\0';
        return Violation("strcat_s", "not enough space for src", ESNOSPC);
    }
    if (Overlap(dest, dlen + slen + 1, src, slen + 1)) {
        dest[0] = '\0';
        return Violation("strcat_s", "overlapping objects", ESOVRLP);
    }
    memcpy(dest + dlen, src, slen + 1);
    return EOK;
}

errno_t vorta_strcmp_s(const char* dest, rsize_t dmax, const char* src, int* indicator)
{
    return StringCompare("strcmp_s", dest, dmax, src, indicator, false);
}

errno_t vorta_strcasecmp_s(const char* dest, rsize_t dmax, const char* src, int* indicator)
{
    return StringCompare("strcasecmp_s", dest, dmax, src, indicator, true);
}

rsize_t vorta_strnlen_s(const char* dest, rsize_t dmax)
{
    if (dest == nullptr || dmax == 0 || dmax > VORTA_RSIZE_MAX) return 0;
    return strnlen(dest, dmax);
}

errno_t vorta_memcpy_s(void* dest, rsize_t dmax, const void* src, rsize_t slen)
{
    return MemCopy("memcpy_s", dest, dmax, src, slen, false);
}

errno_t vorta_memmove_s(void* dest, rsize_t dmax, const void* src, rsize_t slen)
{
    return MemCopy("memmove_s", dest, dmax, src, slen, true);
}

errno_t vorta_memset_s(void* dest, rsize_t dmax, uint8_t value, rsize_t n)
{
    const errno_t rc = CheckDest("memset_s", dest, dmax);
    if (rc != EOK) return rc;
    const rsize_t count = n < dmax ? n : dmax;
    memset(dest, value, count);
    KeepWrites(dest);
    if (n > VORTA_RSIZE_MAX) return Violation("memset_s", "n exceeds max", ESLEMAX);
    if (n > dmax) return Violation("memset_s", "n exceeds dmax", ESNOSPC);
    return EOK;
}

errno_t vorta_memset16_s(uint16_t* dest, rsize_t dmax, uint16_t value, rsize_t n)
{
    const errno_t rc = CheckDest("memset16_s", dest, dmax);
    if (rc != EOK) return rc;
    const rsize_t fits = dmax / sizeof(uint16_t);
    const rsize_t count = n < fits ? n : fits;
    for (rsize_t i = 0; i < count; ++i) dest[i] = value;
    KeepWrites(dest);
    if (n > VORTA_RSIZE_MAX / sizeof(uint16_t)) return Violation("memset16_s", "n exceeds max", ESLEMAX);
    if (n > fits) return Violation("memset16_s", "n exceeds dmax", ESNOSPC);
    return EOK;
}

errno_t vorta_memcmp_s(const void* dest, rsize_t dmax, const void* src, rsize_t slen, int* diff)
{
    if (diff == nullptr) return Violation("memcmp_s", "diff is null", ESNULLP);
    *diff = 0;
    if (dest == nullptr) return Violation("memcmp_s", "dest is null", ESNULLP);
    if (src == nullptr) return Violation("memcmp_s", "src is null", ESNULLP);
    if (dmax == 0) return Violation("memcmp_s", "dmax is 0", ESZEROL);
    if (dmax > VORTA_RSIZE_MAX) return Violation("memcmp_s", "dmax exceeds max", ESLEMAX);
    if (slen > VORTA_RSIZE_MAX) return Violation("memcmp_s", "slen exceeds max", ESLEMAX);
    if (slen > dmax) return Violation("memcmp_s", "slen exceeds dmax", ESNOSPC);
    const auto* a = static_cast<const unsigned char*>(dest);
    const auto* b = static_cast<const unsigned char*>(src);
    for (rsize_t i = 0; i < slen; ++i) {
        if (a[i] != b[i]) {
            *diff = static_cast<int>(a[i]) - static_cast<int>(b[i]);
            break;
        }
    }
    return EOK;
}

void mem_prim_set(void* dest, uint32_t len, uint8_t value)
{
    if (dest != nullptr && len > 0) memset(dest, value, len);
}

void mem_prim_set8(uint8_t* dest, uint32_t len, uint8_t value) { mem_prim_set(dest, len, value); }

void mem_prim_set16(uint16_t* dest, uint32_t len, uint16_t value)
{
    if (dest == nullptr) return;
    for (uint32_t i = 0; i < len; ++i) dest[i] = value;
}

void mem_prim_set32(uint32_t* dest, uint32_t len, uint32_t value)
{
    if (dest == nullptr) return;
    for (uint32_t i = 0; i < len; ++i) dest[i] = value;
}

void mem_prim_move(void* dest, const void* src, uint32_t len)
{
    if (dest != nullptr && src != nullptr && len > 0) memmove(dest, src, len);
}

void mem_prim_move8(uint8_t* dest, const uint8_t* src, uint32_t len) { mem_prim_move(dest, src, len); }

void mem_prim_move16(uint16_t* dest, const uint16_t* src, uint32_t len)
{
    if (dest != nullptr && src != nullptr && len > 0) memmove(dest, src, static_cast<size_t>(len) * sizeof(uint16_t));
}

void mem_prim_move32(uint32_t* dest, const uint32_t* src, uint32_t len)
{
    if (dest != nullptr && src != nullptr && len > 0) memmove(dest, src, static_cast<size_t>(len) * sizeof(uint32_t));
}
