/* Bounded string and memory helpers in the manner of C11 Annex K.
 *
 * Each function takes the size of its destination and checks its constraints before touching
 * memory. On a violation it calls the constraint handler (safe_lib_set_constraint_handler) with a
 * message, and returns one of the ES* codes below; the string functions then leave an empty string
 * in the destination, and vorta_memcpy_s / vorta_memmove_s zero it, whenever the destination pointer
 * and size are themselves usable. Success is EOK (0).
 *
 * Sizes are in bytes unless said otherwise. No size may be 0 or above VORTA_RSIZE_MAX, which
 * catches negative values passed through a cast.
 *
 * The mem_prim_* primitives do no checking at all: they are the raw fill and move underneath.
 */
#ifndef MEDIASESSION_SAFE_LIB_H
#define MEDIASESSION_SAFE_LIB_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define ZYN_API extern "C" __attribute__((visibility("default")))
#else
#define ZYN_API extern __attribute__((visibility("default")))
#endif

typedef int errno_t;
typedef size_t rsize_t;

/* 256 MiB: larger than any buffer the library handles, smaller than any wrapped negative size. */
#define VORTA_RSIZE_MAX ((rsize_t)256 * 1024 * 1024)

#define EOK 0
#define ESNULLP 400  /* null pointer */
#define ESZEROL 401  /* size is zero */
#define ESLEMIN 402  /* size below the minimum */
#define ESLEMAX 403  /* size above VORTA_RSIZE_MAX */
#define ESOVRLP 404  /* source and destination overlap */
#define ESEMPTY 405  /* empty string */
#define ESNOSPC 406  /* destination too small */
#define ESUNTERM 407 /* destination not terminated within its size */
#define ESNODIFF 408 /* no difference */
#define ESNOTFND 409 /* not found */

/* Called on every violated constraint, on the calling thread: a message naming the function and
 * the constraint, a pointer (always null here), and the code about to be returned. */
typedef void (*constraint_handler_t)(const char* msg, void* ptr, errno_t error);
/* Installs a handler for the whole process and returns the previous one; null restores the default,
 * which ignores the call. */
ZYN_API constraint_handler_t safe_lib_set_constraint_handler(constraint_handler_t handler);

/* Copies src with its terminator; src's length must be below dmax. */
ZYN_API errno_t vorta_strcpy_s(char* dest, rsize_t dmax, const char* src);
/* Copies at most slen characters of src and always terminates; slen may be 0 (gives ""). Fails
 * with ESNOSPC when what would be copied does not fit with its terminator. */
ZYN_API errno_t vorta_strncpy_s(char* dest, rsize_t dmax, const char* src, rsize_t slen);
/* Appends src to the string in dest; dest must be terminated within dmax (ESUNTERM). */
ZYN_API errno_t vorta_strcat_s(char* dest, rsize_t dmax, const char* src);
/* *indicator gets <0, 0 or >0 as strcmp would, comparing at most dmax characters. */
ZYN_API errno_t vorta_strcmp_s(const char* dest, rsize_t dmax, const char* src, int* indicator);
/* The same ignoring ASCII case. */
ZYN_API errno_t vorta_strcasecmp_s(const char* dest, rsize_t dmax, const char* src, int* indicator);
/* Length of dest, at most dmax; 0 for a null dest or a bad dmax (no handler call, as in C11). */
ZYN_API rsize_t vorta_strnlen_s(const char* dest, rsize_t dmax);

/* Copies slen bytes; slen above dmax is ESNOSPC, overlapping ranges are ESOVRLP (use memmove). slen
 * 0 copies nothing and succeeds. */
ZYN_API errno_t vorta_memcpy_s(void* dest, rsize_t dmax, const void* src, rsize_t slen);
/* As vorta_memcpy_s, overlap allowed. */
ZYN_API errno_t vorta_memmove_s(void* dest, rsize_t dmax, const void* src, rsize_t slen);
/* Sets n bytes to value; with n above dmax the dmax bytes are set and ESNOSPC is returned. Never
 * optimised away, so it can clear secrets. */
ZYN_API errno_t vorta_memset_s(void* dest, rsize_t dmax, uint8_t value, rsize_t n);
/* Sets n 16-bit elements (dmax in bytes); with too many, the elements that fit are set, ESNOSPC. */
ZYN_API errno_t vorta_memset16_s(uint16_t* dest, rsize_t dmax, uint16_t value, rsize_t n);
/* *diff gets the difference of the first unequal bytes (dest minus src, as unsigned bytes), or 0.
 * slen must be within dmax. */
ZYN_API errno_t vorta_memcmp_s(const void* dest, rsize_t dmax, const void* src, rsize_t slen, int* diff);

/* Unchecked primitives; lengths of the 16 and 32-bit forms count elements. A null pointer or zero
 * length does nothing. The move forms handle overlap. */
ZYN_API void mem_prim_set(void* dest, uint32_t len, uint8_t value);
ZYN_API void mem_prim_set8(uint8_t* dest, uint32_t len, uint8_t value);
ZYN_API void mem_prim_set16(uint16_t* dest, uint32_t len, uint16_t value);
ZYN_API void mem_prim_set32(uint32_t* dest, uint32_t len, uint32_t value);
ZYN_API void mem_prim_move(void* dest, const void* src, uint32_t len);
ZYN_API void mem_prim_move8(uint8_t* dest, const uint8_t* src, uint32_t len);
ZYN_API void mem_prim_move16(uint16_t* dest, const uint16_t* src, uint32_t len);
ZYN_API void mem_prim_move32(uint32_t* dest, const uint32_t* src, uint32_t len);

#endif /* MEDIASESSION_SAFE_LIB_H */
