// SPDX-License-Identifier: BSD-3-Clause
// The plain layer: aligned blocks with a header in front.
//   p = (raw + alignment + 24) rounded down to the alignment, of alignment + 24 + size bytes taken at raw
#include <string.h>

#include "frame/service/memory.h"

using namespace tesh_memory;

namespace
{
// The 24 bytes in front of a block.
struct block_header {
    char *raw;         // address from the allocator; null: not a block
    uint64_t total;    // [bytes] asked of the allocator
    int32_t alignment; // [bytes] power of two, 64 at least
};
constexpr size_t header_bytes = 24;
static_assert(sizeof(block_header) == header_bytes && offsetof(block_header, alignment) == 16, "header layout");

block_header *header_of(void *pointer)
{
    return reinterpret_cast<block_header *>(static_cast<char *>(pointer) - header_bytes);
}

char *place_in(char *raw, size_t alignment)
{
    const size_t up = alignment + header_bytes;
    return raw + (up - ((reinterpret_cast<uintptr_t>(raw) + up) & (alignment - 1)));
}

// size + alignment + header; false if that overflows.
bool total_of(size_t size, size_t alignment, size_t *total)
{
    return !__builtin_add_overflow(size, alignment + header_bytes, total);
}
} // namespace

extern "C" {
void *tesh_serv_malloc(size_t size, int32_t alignment)
{
    if (size == 0)
        return nullptr;
    mm_init();
    const size_t align = mm_alignment(alignment);
    size_t total;
    if (!total_of(size, align, &total))
        return nullptr;
    char *const raw = static_cast<char *>(sys_alloc(total));
    if (raw == nullptr)
        return nullptr;
    char *const pointer = place_in(raw, align);
    *header_of(pointer) = {raw, total, static_cast<int32_t>(align)};
    mm_account_add(static_cast<int64_t>(total), 1);
    mm_stat_add(static_cast<int64_t>(total), 1);
    return pointer;
}

void tesh_serv_free(void *pointer)
{
    if (pointer == nullptr)
        return;
    mm_init();
    const block_header header = *header_of(pointer);
    if (header.raw == nullptr)
        return;
    mm_account_add(-static_cast<int64_t>(header.total), -1);
    mm_stat_add(-static_cast<int64_t>(header.total), -1);
    sys_free(header.raw);
}

void *tesh_serv_realloc(void *pointer, size_t size)
{
    if (pointer == nullptr)
        return tesh_serv_malloc(size, static_cast<int32_t>(line_bytes));
    mm_init();
    const block_header old = *header_of(pointer);
    if (old.raw == nullptr)
        return nullptr;
    const size_t offset = static_cast<size_t>(static_cast<char *>(pointer) - old.raw);
    const size_t room = old.total - offset;
    if (size <= room)
        return pointer;
    const size_t align = static_cast<size_t>(old.alignment);
    size_t total;
    if (!total_of(size, align, &total))
        return nullptr;
    char *const raw = static_cast<char *>(sys_realloc(old.raw, total));
    if (raw == nullptr)
        return nullptr;
    char *moved = static_cast<char *>(pointer);
    if (raw != old.raw) {
        // The new raw address may lie differently towards the alignment: the contents follow, then the header, which
        // the contents could otherwise cover.
        moved = place_in(raw, align);
        memmove(moved, raw + offset, room);
        header_of(moved)->raw = raw;
        header_of(moved)->alignment = old.alignment;
    }
    const int64_t grown = static_cast<int64_t>(total - old.total);
    mm_account_add(grown, 0);
    mm_stat_add(grown, 0);
    header_of(moved)->total = total;
    return moved;
}

void *tesh_serv_calloc(size_t count, size_t size, int32_t alignment)
{
    const size_t bytes = count * size;
    void *const pointer = tesh_serv_malloc(bytes, alignment);
    if (pointer != nullptr)
        memset(pointer, 0, bytes);
    return pointer;
}
}
