// SPDX-License-Identifier: BSD-3-Clause
// Block sizes and scratch memory of the packed frame. The A block starts 1664 bytes behind a boundary of 2 MiB, the B
// block 768 bytes behind a page: never at the same offset within a page.
//
// p: the path's sizes (gemm/<path>/sgemm_path_<path>.h).
#pragma once
#include "frame/tesh_serv.h"
#include "gemm/body/sgemm_views.h"
#include "gemm/sgemm_paths.h"

namespace
{
constexpr int64_t large_page = 0x200000, page = 4096, header_align = 128; // [bytes]
constexpr int64_t a_offset = 1664, b_offset = 768;                        // [bytes] of a block behind its boundary
constexpr int64_t header_room = 8192;                                     // [bytes] between a pack header and its block
constexpr int32_t allocation_align = 128;                                 // [bytes]

// [bytes] beside the elements of a block: its offset, and twice its boundary.
constexpr int64_t a_room = 2 * large_page + a_offset, b_room = 2 * page + b_offset;
constexpr int64_t a_count_room = 2 * page + a_offset; // of each block where several of A lie behind each other
// [bytes] beside those of a block that outlives the call: its offset, header and boundary; beside several:
// the boundary.
constexpr int64_t a_pack_room = 3 * large_page + header_align + a_offset;
constexpr int64_t b_pack_room = 3 * large_page + header_align + b_offset;
constexpr int64_t count_room = 2 * large_page, count_pack_room = count_room + header_align;

inline char *align_up(void *address, int64_t boundary)
{
    const uintptr_t mask = static_cast<uintptr_t>(boundary) - 1;
    return reinterpret_cast<char *>((reinterpret_cast<uintptr_t>(address) + mask) & ~mask);
}

// (width * depth floats + extra bytes) * count + more bytes; -1 where that is no size.
inline int64_t bytes_of(int64_t width, int64_t depth, int64_t extra, int64_t count, int64_t more)
{
    int64_t bytes = 0;
    if (__builtin_mul_overflow(width, depth, &bytes) || __builtin_mul_overflow(bytes, 4, &bytes) ||
        __builtin_add_overflow(bytes, extra, &bytes) || __builtin_mul_overflow(bytes, count, &bytes) ||
        __builtin_add_overflow(bytes, more, &bytes) || bytes < 0)
        return -1;
    return bytes;
}

inline void *allocate(int64_t bytes)
{
    return bytes <= 0 ? nullptr : tesh_serv_allocate(static_cast<size_t>(bytes), allocation_align);
}

template <class p> int64_t depth_block(int64_t k, int64_t unroll_k)
{
    if (k >= 2 * p::block_k)
        return p::block_k;
    if (k > p::block_k_whole)
        return round_up(p::half_depth(k), unroll_k);
    return max_of(round_up(k, unroll_k), p::block_k_least);
}

inline void fill_block_view(blas_matrix_view *view, int64_t block_k, int64_t width, int64_t panel, int64_t unroll_k)
{
    const int64_t padded_k = round_up(block_k, unroll_k);
    fill_view(view, nullptr, block_k, width, panel * padded_k, blas_view_packed, getPointer_buffer);
    view->unroll_k = unroll_k;
    view->panel = panel;
    view->padded_k = padded_k;
}

// The functions that a record of the path points to.
struct buffer_functions {
    gemm_get_bufs_fn *get_bufs, *get_bufs_pack;
    gemm_get_size_bufs_fn *get_size_bufs;
    gemm_set_bufs_fn *set_bufs_pack;
    gemm_free_bufs_fn *free_bufs;
};

template <class p>
inline void initialize_buffers(const blas_matrix_view *a, const blas_matrix_view *b, const gemm_strategy *strategy,
                               gemm_buffers *buffers, const buffer_functions &functions)
{
    const int64_t m = a->rows, k = a->cols, n = b->cols;
    const int64_t unroll_m = static_cast<int64_t>(strategy->unroll_m);
    const int64_t unroll_n = static_cast<int64_t>(strategy->unroll_n);
    const int64_t unroll_k = static_cast<int64_t>(strategy->unroll_k);
    buffers->base = nullptr;
    buffers->pack_header = nullptr;
    buffers->buffer_mode = strategy->a_policy == gemm_policy_given ? gemm_buffers_b : gemm_buffers_both;
    buffers->block_m = round_up(min_of(max_of(m, unroll_m), p::block_m_most), unroll_m);
    buffers->block_n =
        round_up(min_of(max_of(n, unroll_n), k > p::shallow_k ? p::block_n_most : p::block_n_shallow), unroll_n);
    buffers->block_k = depth_block<p>(k, unroll_k);
    buffers->a_offset = a_offset;
    buffers->a_align = large_page;
    buffers->b_offset = b_offset;
    buffers->b_align = page;
    buffers->count = 1;
    fill_block_view(&buffers->a_block, buffers->block_k, buffers->block_m, unroll_m, unroll_k);
    fill_block_view(&buffers->b_block, buffers->block_k, buffers->block_n, unroll_n, unroll_k);
    const bool pack = strategy->pack_mode == 2;
    buffers->get_bufs = pack ? functions.get_bufs_pack : functions.get_bufs;
    buffers->get_size_bufs = pack ? functions.get_size_bufs : nullptr;
    buffers->set_bufs = pack ? functions.set_bufs_pack : nullptr;
    buffers->free_bufs = functions.free_bufs;
}

inline int32_t get_bufs(gemm_buffers *buffers)
{
    const int64_t bm = buffers->block_m, bn = buffers->block_n, bk = buffers->block_k;
    int64_t bytes = -1, width = 0;
    switch (buffers->buffer_mode) {
    case gemm_buffers_a:
        bytes = bytes_of(bm, bk, a_room, 1, 0);
        break;
    case gemm_buffers_b:
        bytes = bytes_of(bn, bk, b_room, 1, 0);
        break;
    case gemm_buffers_both:
        bytes = __builtin_add_overflow(bm, bn, &width) ? -1 : bytes_of(width, bk, a_room + b_room, 1, 0);
        break;
    case gemm_buffers_b_count:
        bytes = bytes_of(bn, bk, b_room, buffers->count, count_room);
        break;
    default:
        buffers->base = nullptr;
        return 1;
    }
    buffers->base = allocate(bytes);
    if (buffers->base == nullptr)
        return 1;
    switch (buffers->buffer_mode) {
    case gemm_buffers_a:
        buffers->a_block.base = align_up(buffers->base, large_page) + a_offset;
        break;
    case gemm_buffers_b:
        buffers->b_block.base = align_up(buffers->base, page) + b_offset;
        break;
    case gemm_buffers_both:
        buffers->b_block.base = align_up(buffers->base, page) + b_offset;
        buffers->a_block.base =
            align_up(static_cast<char *>(buffers->b_block.base) + bk * 4 * bn, large_page) + a_offset;
        break;
    default:
        buffers->b_block.base = align_up(buffers->base, large_page);
        break;
    }
    return 0;
}

inline void free_bufs(gemm_buffers *buffers)
{
    tesh_serv_deallocate(buffers->base);
    buffers->base = nullptr;
}

// Bytes for blocks that outlive the call, with their header.
inline int64_t get_size_bufs(gemm_buffers *buffers)
{
    const int64_t bm = buffers->block_m, bn = buffers->block_n, bk = buffers->block_k;
    switch (buffers->buffer_mode) {
    case gemm_buffers_a:
        return bytes_of(bm, bk, a_pack_room, 1, 0);
    case gemm_buffers_b:
        return bytes_of(bn, bk, b_pack_room, 1, 0);
    case gemm_buffers_both:
        buffers->a_block.base = nullptr;
        buffers->b_block.base = nullptr;
        return 0;
    case gemm_buffers_b_count:
        buffers->b_align = page;
        return bytes_of(bn, bk, b_room, buffers->count, count_pack_room);
    case gemm_buffers_a_count:
        buffers->a_align = page;
        return bytes_of(bm, bk, a_count_room, buffers->count, count_pack_room);
    default:
        return 0;
    }
}

inline void set_block(gemm_buffers *buffers, char *block, blas_matrix_view *view)
{
    view->base = block;
    buffers->pack_header[0] = (block - reinterpret_cast<char *>(buffers->pack_header)) / 4;
}

inline void set_bufs_pack(void *memory, gemm_buffers *buffers)
{
    if (buffers->buffer_mode == gemm_buffers_b_count) {
        buffers->b_block.base = align_up(buffers->base, large_page);
        return;
    }
    if (buffers->buffer_mode == gemm_buffers_a_count) {
        buffers->a_block.base = align_up(buffers->base, large_page);
        return;
    }
    char *header = align_up(memory, header_align);
    buffers->pack_header = reinterpret_cast<int64_t *>(header);
    char *boundary = align_up(header + header_room, large_page);
    if (buffers->buffer_mode == gemm_buffers_a)
        set_block(buffers, boundary + a_offset, &buffers->a_block);
    else if (buffers->buffer_mode == gemm_buffers_b)
        set_block(buffers, boundary + b_offset, &buffers->b_block);
}

template <class p> inline int32_t get_bufs_pack(gemm_buffers *buffers)
{
    buffers->base = allocate(get_size_bufs(buffers));
    if (buffers->base == nullptr)
        return 1;
    set_bufs_pack(buffers->base, buffers);
    if (buffers->buffer_mode == gemm_buffers_a || buffers->buffer_mode == gemm_buffers_b) {
        int64_t *header = buffers->pack_header;
        header[1] = buffers->block_m;
        header[2] = buffers->block_n;
        header[3] = buffers->block_k;
        header[4] = 0;
        header[5] = -1;
        header[6] = p::pack_version;
    }
    return 0;
}
} // namespace
