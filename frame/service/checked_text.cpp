// SPDX-License-Identifier: BSD-3-Clause
// Bounded copies of strings and memory. A broken bound calls the constraint handler with (message, null, number) and
// returns the number; nothing is ever written past dmax or read past the stated length of a source. Nothing outside the
// library is called, so that these work in any state of the process.
#include "frame/tesh_serv.h"

namespace
{
constexpr size_t string_max_bytes = 4096;
constexpr size_t memory_max_bytes = 0x10000000;

enum constraint_error : int32_t {
    constraint_error_null = 400,
    constraint_error_zero = 401,
    constraint_error_too_long = 403,
    constraint_error_overlap = 404,
    constraint_error_no_space = 406,
    constraint_error_unterminated = 407,
};

tesh_serv_constraint_fn str_handler = nullptr; // null: tesh_serv_ignore_handler_s
tesh_serv_constraint_fn mem_handler = nullptr; // null: tesh_serv_ignore_handler_s

int32_t report(tesh_serv_constraint_fn handler, const char *message, int32_t error)
{
    if (handler != nullptr)
        handler(message, nullptr, error);
    return error;
}

tesh_serv_constraint_fn exchange_handler(tesh_serv_constraint_fn &slot, tesh_serv_constraint_fn handler)
{
    const tesh_serv_constraint_fn former = slot;
    slot = handler != nullptr ? handler : tesh_serv_ignore_handler_s;
    return former;
}

// Characters of s before its terminator, at most bound.
size_t bounded_length(const char *s, size_t bound)
{
    size_t n = 0;
    while (n < bound && s[n] != '\0')
        ++n;
    return n;
}

// Whether the first a_bytes at a and the first b_bytes at b share a byte.
bool regions_meet(const void *a, size_t a_bytes, const void *b, size_t b_bytes)
{
    const uintptr_t x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return x <= y ? y - x < a_bytes : x - y < b_bytes;
}

// An eight-byte word at any address, of any type.
typedef uint64_t any_word __attribute__((aligned(1), may_alias));

// Keeps the compiler from turning the loops below into calls of the C library's functions.
inline void keep_loop()
{
    __asm__ volatile("" ::: "memory");
}

int32_t strncpy_failure(char *dest, const char *message, int32_t error)
{
    dest[0] = '\0';
    return report(str_handler, message, error);
}

int32_t memcpy_failure(void *dest, size_t dmax, const char *message, int32_t error)
{
    tesh_serv_mem_prim_set(dest, dmax, 0);
    return report(mem_handler, message, error);
}
} // namespace

extern "C" {
tesh_serv_constraint_fn tesh_serv_set_str_constraint_handler_s(tesh_serv_constraint_fn handler)
{
    return exchange_handler(str_handler, handler);
}

tesh_serv_constraint_fn tesh_serv_set_mem_constraint_handler_s(tesh_serv_constraint_fn handler)
{
    return exchange_handler(mem_handler, handler);
}

void tesh_serv_ignore_handler_s(const char *, void *, int32_t) {}

size_t tesh_serv_strnlen_s(const char *s, size_t dmax)
{
    if (s == nullptr)
        return 0;
    if (dmax == 0) {
        report(str_handler, "strnlen_s: dmax is 0", constraint_error_zero);
        return 0;
    }
    if (dmax > string_max_bytes) {
        report(str_handler, "strnlen_s: dmax exceeds max", constraint_error_too_long);
        return 0;
    }
    return bounded_length(s, dmax);
}

int32_t tesh_serv_strncpy_s(char *dest, size_t dmax, const char *src, size_t slen)
{
    if (dest == nullptr)
        return report(str_handler, "strncpy_s: dest is null", constraint_error_null);
    if (dmax == 0)
        return report(str_handler, "strncpy_s: dmax is 0", constraint_error_zero);
    if (dmax > string_max_bytes)
        return report(str_handler, "strncpy_s: dmax exceeds max", constraint_error_too_long);
    if (src == nullptr)
        return strncpy_failure(dest, "strncpy_s: src is null", constraint_error_null);
    if (slen == 0)
        return strncpy_failure(dest, "strncpy_s: slen is zero", constraint_error_zero);
    if (slen > string_max_bytes)
        return strncpy_failure(dest, "strncpy_s: slen exceeds max", constraint_error_too_long);
    const size_t length = bounded_length(src, slen < dmax ? slen : dmax);
    const size_t stored = length < dmax ? length + 1 : dmax; // the terminator included, if there is room
    if (regions_meet(dest, stored, src, stored))
        return strncpy_failure(dest, "strncpy_s: overlapping objects", constraint_error_overlap);
    if (length == dmax)
        return strncpy_failure(dest, "strncpy_s: not enough space for src", constraint_error_no_space);
    tesh_serv_mem_prim_move(dest, src, length);
    dest[length] = '\0';
    return 0;
}

// A failure leaves dest as it was.
int32_t tesh_serv_strncat_s(char *dest, size_t dmax, const char *src, size_t slen)
{
    if (dest == nullptr)
        return report(str_handler, "strncat_s: dest is null", constraint_error_null);
    if (src == nullptr)
        return report(str_handler, "strncat_s: src is null", constraint_error_null);
    if (slen > string_max_bytes)
        return report(str_handler, "strncat_s: slen exceeds max", constraint_error_too_long);
    if (dmax == 0)
        return report(str_handler, "strncat_s: dmax is 0", constraint_error_zero);
    if (dmax > string_max_bytes)
        return report(str_handler, "strncat_s: dmax exceeds max", constraint_error_too_long);
    const size_t kept = bounded_length(dest, dmax);
    const size_t room = dmax - kept;
    const size_t added = bounded_length(src, slen < room ? slen : room);
    const size_t stored = added < room ? added + 1 : room;
    if (regions_meet(dest, kept + stored, src, stored))
        return report(str_handler, "strncat_s: overlapping objects", constraint_error_overlap);
    if (room == 0)
        return report(str_handler, "strncat_s: dest unterminated", constraint_error_unterminated);
    if (added == room)
        return report(str_handler, "strncat_s: not enough space for src", constraint_error_no_space);
    tesh_serv_mem_prim_move(dest + kept, src, added);
    dest[kept + added] = '\0';
    return 0;
}

int32_t tesh_serv_memcpy_s(void *dest, size_t dmax, const void *src, size_t smax)
{
    if (dest == nullptr)
        return report(mem_handler, "memcpy_s: dest is NULL", constraint_error_null);
    if (dmax == 0)
        return report(mem_handler, "memcpy_s: dmax is 0", constraint_error_zero);
    if (dmax > memory_max_bytes)
        return report(mem_handler, "memcpy_s: dmax exceeds max", constraint_error_too_long);
    if (smax == 0)
        return memcpy_failure(dest, dmax, "memcpy_s: smax is 0", constraint_error_zero);
    if (smax > dmax)
        return memcpy_failure(dest, dmax, "memcpy_s: smax exceeds dmax", constraint_error_too_long);
    if (src == nullptr)
        return memcpy_failure(dest, dmax, "memcpy_s: src is NULL", constraint_error_null);
    if (regions_meet(dest, dmax, src, smax))
        return memcpy_failure(dest, dmax, "memcpy_s: overlap undefined", constraint_error_overlap);
    tesh_serv_mem_prim_move(dest, src, smax);
    return 0;
}

// Of any size: smax is bounded by dmax alone. A failure leaves dest as it was.
int32_t tesh_serv_memmove_unbounded_s(void *dest, size_t dmax, const void *src, size_t smax)
{
    if (dest == nullptr)
        return report(mem_handler, "memmove_s: dest is null", constraint_error_null);
    if (dmax == 0)
        return report(mem_handler, "memmove_s: dmax is 0", constraint_error_zero);
    if (smax == 0)
        return report(mem_handler, "memmove_s: smax is 0", constraint_error_zero);
    if (smax > dmax)
        return report(mem_handler, "memmove_s: smax exceeds max", constraint_error_too_long);
    if (src == nullptr)
        return report(mem_handler, "memmove_s: src is null", constraint_error_null);
    tesh_serv_mem_prim_move(dest, src, smax);
    return 0;
}

void tesh_serv_mem_prim_set(void *dest, size_t length, uint8_t value)
{
    uint8_t *d = static_cast<uint8_t *>(dest);
    const uint64_t word = value * UINT64_C(0x0101010101010101);
    for (; length >= sizeof(any_word); length -= sizeof(any_word), d += sizeof(any_word)) {
        *reinterpret_cast<any_word *>(d) = word;
        keep_loop();
    }
    for (; length > 0; --length) {
        *d++ = value;
        keep_loop();
    }
}

// The regions may overlap: the copy runs from the end that is not yet overwritten.
void tesh_serv_mem_prim_move(void *dest, const void *src, size_t length)
{
    uint8_t *d = static_cast<uint8_t *>(dest);
    const uint8_t *s = static_cast<const uint8_t *>(src);
    if (reinterpret_cast<uintptr_t>(d) <= reinterpret_cast<uintptr_t>(s)) {
        for (; length >= sizeof(any_word); length -= sizeof(any_word), d += sizeof(any_word), s += sizeof(any_word)) {
            *reinterpret_cast<any_word *>(d) = *reinterpret_cast<const any_word *>(s);
            keep_loop();
        }
        for (; length > 0; --length) {
            *d++ = *s++;
            keep_loop();
        }
        return;
    }
    while (length % sizeof(any_word) != 0) {
        --length;
        d[length] = s[length];
        keep_loop();
    }
    while (length > 0) {
        length -= sizeof(any_word);
        *reinterpret_cast<any_word *>(d + length) = *reinterpret_cast<const any_word *>(s + length);
        keep_loop();
    }
}

// Lengths below 0 count as 0.
void tesh_serv_strcpy(char *dest, const char *src, int64_t src_length, int64_t dest_length)
{
    tesh_serv_strcat2(dest, src, nullptr, src_length, 0, dest_length);
}

void tesh_serv_strcat2(char *dest, const char *a, const char *b, int64_t a_length, int64_t b_length,
                       int64_t dest_length)
{
    int64_t at = 0;
    const struct {
        const char *text;
        int64_t length;
    } sources[2] = {{a, a_length}, {b, b_length}};
    for (const auto &source : sources) {
        const int64_t room = dest_length - at;
        const int64_t n = source.length < room ? source.length : room;
        if (n > 0) {
            tesh_serv_mem_prim_move(dest + at, source.text, static_cast<size_t>(n));
            at += n;
        }
    }
    if (at < dest_length)
        tesh_serv_mem_prim_set(dest + at, static_cast<size_t>(dest_length - at), ' ');
}
}
