// SPDX-License-Identifier: BSD-3-Clause
// Packing: a matrix, times a scale, into panels. A panel of width w holds depth steps of w consecutive floats: element
// (step l, c) lies at l*w + c. The last panels have the binary widths that are left.
//
//   down    the width runs along contiguous memory: a step is a plain vector load
//   right   the width runs across the leading dimension: w streams, transposed in registers
//
// A path adds the 16-lane transposition where it has such registers, and a transposer where it has a faster block.
#pragma once
#include "gemm/body/sgemm_lanes.h"
#include "gemm/sgemm_paths.h"

namespace
{
// ---- the scale ----------------------------------------------------------------------------------------------------
struct scale_none {
    template <class v> [[gnu::always_inline]] inline typename v::reg apply(typename v::reg x) const { return x; }
};
struct scale_flip {
    template <class v> [[gnu::always_inline]] inline typename v::reg apply(typename v::reg x) const
    {
        return v::flip(x);
    }
};
struct scale_times {
    float factor;
    template <class v> [[gnu::always_inline]] inline typename v::reg apply(typename v::reg x) const
    {
        return v::mul(x, v::set1(factor));
    }
};

[[gnu::always_inline]] inline void fetch_write(const float *p)
{
    __builtin_prefetch(p, 1, 3);
}
constexpr int line = 64 / 4;         // [elements] of a cache line
constexpr int write_ahead = 512 / 4; // [elements] fetched of the destination ahead of the store
constexpr int read_ahead = 64 / 4;   // [elements] fetched ahead of each stream
constexpr int ahead_steps = 8;       // depth steps fetched ahead where each lies in a line of its own

// ---- down ---------------------------------------------------------------------------------------------------------
// One step of a panel of width w: whole registers of the path, or one of a binary width below.
template <class v, int w, class scale>
[[gnu::always_inline]] inline void down_step(const float *source, float *panel, scale s)
{
    if constexpr (w >= v::width) {
#pragma GCC unroll 4
        for (int i = 0; i < w; i += v::width)
            v::store(panel + i, s.template apply<v>(v::load(source + i)));
    } else {
        lanes<w>::store(panel, s.template apply<lanes<w>>(lanes<w>::load(source)));
    }
}

// panels panels of width w side by side, so that every line of the source is read once.
template <class v, int w, int panels, class scale>
[[gnu::noinline]] float *down_panels(int64_t depth, const float *source, int64_t ld, float *panel, scale s)
{
    constexpr int across = w * panels;
    const int64_t next = w * depth; // from a panel to the one beside it
    for (int g = 0; g < panels; ++g)
        for (int i = 0; i < write_ahead; i += line)
            fetch_write(panel + g * next + i);
    for (int64_t l = 0; l < depth; ++l, source += ld, panel += w) {
#pragma GCC unroll 4
        for (int i = 0; i < across; i += line)
            fetch_read(source + ahead_steps * ld + i);
#pragma GCC unroll 8
        for (int g = 0; g < panels; ++g) {
            if (w >= line || l % (line / w) == 0)
#pragma GCC unroll 4
                for (int i = 0; i < w; i += line)
                    fetch_write(panel + g * next + write_ahead + i);
            down_step<v, w>(source + g * w, panel + g * next, s);
        }
    }
    return panel + (panels - 1) * next;
}

// ---- right --------------------------------------------------------------------------------------------------------
// transpose_block<g>: g streams of g steps each, steps of them valid, stored as steps of w floats. What is stored is
// scaled, not what was loaded: the zeros of a masked load would raise a flag with an infinite scale.
template <int g> struct transpose_block;

template <> struct transpose_block<1> {
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t, float *panel, int64_t, int, scale s)
    {
        *panel = s.template apply<lanes<1>>(lanes<1>::load(source));
    }
};

template <> struct transpose_block<2> {
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t ld, float *panel, int64_t w, int steps, scale s)
    {
        for (int l = 0; l < (whole ? 2 : steps); ++l) {
            panel[l * w] = s.template apply<lanes<1>>(lanes<1>::load(source + l));
            panel[l * w + 1] = s.template apply<lanes<1>>(lanes<1>::load(source + l + ld));
        }
    }
};

template <> struct transpose_block<4> {
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t ld, float *panel, int64_t w, int steps, scale s)
    {
        using v = lanes<4>;
        const __m128i valid = _mm_cmpgt_epi32(_mm_set1_epi32(steps), _mm_setr_epi32(0, 1, 2, 3));
        __m128 x[4];
#pragma GCC unroll 4
        for (int c = 0; c < 4; ++c)
            x[c] = whole ? v::load(source + c * ld) : _mm_maskload_ps(source + c * ld, valid);
        const __m128 t0 = _mm_unpacklo_ps(x[0], x[1]), t1 = _mm_unpackhi_ps(x[0], x[1]);
        const __m128 t2 = _mm_unpacklo_ps(x[2], x[3]), t3 = _mm_unpackhi_ps(x[2], x[3]);
        v::store(panel, s.template apply<v>(_mm_movelh_ps(t0, t2)));
        if (whole || steps > 1)
            v::store(panel + w, s.template apply<v>(_mm_movehl_ps(t2, t0)));
        if (whole || steps > 2)
            v::store(panel + 2 * w, s.template apply<v>(_mm_movelh_ps(t1, t3)));
        if (whole || steps > 3)
            v::store(panel + 3 * w, s.template apply<v>(_mm_movehl_ps(t3, t1)));
    }
};

template <> struct transpose_block<8> {
    template <class scale, bool whole>
    static inline void run(const float *source, int64_t ld, float *panel, int64_t w, int steps, scale s)
    {
        using v = lanes<8>;
        const __m256i valid = v::first(steps);
        __m256 x[8], y[8];
#pragma GCC unroll 8
        for (int c = 0; c < 8; ++c)
            x[c] = whole ? v::load(source + c * ld) : v::load(source + c * ld, valid);
#pragma GCC unroll 2
        // Pairs of streams, then fours: y[q] holds steps q and q + 4 of streams 0-3, y[q + 4] those of streams 4-7.
        for (int c = 0; c < 8; c += 4) {
            const __m256 t0 = _mm256_unpacklo_ps(x[c], x[c + 1]), t1 = _mm256_unpackhi_ps(x[c], x[c + 1]);
            const __m256 t2 = _mm256_unpacklo_ps(x[c + 2], x[c + 3]), t3 = _mm256_unpackhi_ps(x[c + 2], x[c + 3]);
            y[c] = _mm256_shuffle_ps(t0, t2, 0x44);
            y[c + 1] = _mm256_shuffle_ps(t0, t2, 0xee);
            y[c + 2] = _mm256_shuffle_ps(t1, t3, 0x44);
            y[c + 3] = _mm256_shuffle_ps(t1, t3, 0xee);
        }
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q)
            if (whole || q < steps)
                v::store(panel + q * w, s.template apply<v>(_mm256_permute2f128_ps(y[q], y[q + 4], 0x20)));
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q)
            if (whole || q + 4 < steps)
                v::store(panel + (q + 4) * w, s.template apply<v>(_mm256_permute2f128_ps(y[q], y[q + 4], 0x31)));
    }
};

// What a path transposes a group of g streams with: by default squares; steps is the length of a stream in a block.
template <class v, int g> struct transposer : transpose_block<g> {
    static constexpr int steps = g;
};

// A panel of width w out of groups of streams.
template <class v, int w, class scale>
[[gnu::noinline]] float *right_panel(int64_t depth, const float *source, int64_t ld, float *panel, scale s)
{
    constexpr int g = w < v::width ? w : v::width;
    using block = transposer<v, g>;
    for (int i = 0; i < write_ahead; i += line)
        fetch_write(panel + i);
#pragma GCC unroll 1
    for (int c = 0; c < w; c += g) {
        const float *from = source + c * ld;
        float *to = panel + c;
        int64_t l = 0;
        for (; l + block::steps <= depth; l += block::steps, from += block::steps, to += block::steps * w) {
            if (block::steps == line || l % line == 0)
#pragma GCC unroll 16
                for (int i = 0; i < g; ++i)
                    fetch_read(from + i * ld + read_ahead);
            if (c == 0 && (block::steps * w >= line || l % (line / w) == 0)) // later groups find the lines there
#pragma GCC unroll 16
                for (int i = 0; i < block::steps * w; i += line)
                    fetch_write(to + write_ahead + i);
            block::template run<scale, true>(from, ld, to, w, block::steps, s);
        }
        if (l < depth)
            block::template run<scale, false>(from, ld, to, w, static_cast<int>(depth - l), s);
    }
    return panel + depth * w;
}

// ---- blocks -------------------------------------------------------------------------------------------------------
// Panels of every width that is left below the full one, widest first.
template <class v, int w, class scale>
inline void down_rest(int64_t depth, int64_t width, const float *source, int64_t ld, float *panel, scale s)
{
    if (width & w) {
        panel = down_panels<v, w, 1>(depth, source, ld, panel, s);
        source += w;
    }
    if constexpr (w > 1)
        down_rest<v, w / 2>(depth, width, source, ld, panel, s);
}

template <class v, int w, class scale>
inline void right_rest(int64_t depth, int64_t width, const float *source, int64_t ld, float *panel, scale s)
{
    if (width & w) {
        panel = right_panel<v, w>(depth, source, ld, panel, s);
        source += w * ld;
    }
    if constexpr (w > 1)
        right_rest<v, w / 2>(depth, width, source, ld, panel, s);
}

constexpr int power_below(int w)
{
    int p = 1;
    while (2 * p < w)
        p *= 2;
    return p;
}

// v: the path's full register.
template <class v, int w> struct pack_down {
    template <class scale>
    static inline void run(int64_t depth, int64_t width, const float *source, int64_t ld, float *panel, scale s)
    {
        constexpr int side_by_side = w < line ? 2 * line / w : 1;
        if constexpr (side_by_side > 1)
            for (; width >= side_by_side * w; width -= side_by_side * w, source += side_by_side * w)
                panel = down_panels<v, w, side_by_side>(depth, source, ld, panel, s);
        for (; width >= w; width -= w, source += w)
            panel = down_panels<v, w, 1>(depth, source, ld, panel, s);
        down_rest<v, power_below(w)>(depth, width, source, ld, panel, s);
    }
};

template <class v, int w> struct pack_right {
    template <class scale>
    static inline void run(int64_t depth, int64_t width, const float *source, int64_t ld, float *panel, scale s)
    {
        for (; width >= w; width -= w, source += w * ld)
            panel = right_panel<v, w>(depth, source, ld, panel, s);
        right_rest<v, power_below(w)>(depth, width, source, ld, panel, s);
    }
};

// A copy for each kind of scale: 1 and -1 cost no multiplication, and a NaN takes the general one.
template <class pack>
inline void scopy(const int64_t *depth, const int64_t *width, const float *source, const int64_t *ld,
                  const float *scale, float *destination)
{
    if (*scale == 1.0f)
        pack::run(*depth, *width, source, *ld, destination, scale_none());
    else if (*scale == -1.0f)
        pack::run(*depth, *width, source, *ld, destination, scale_flip());
    else
        pack::run(*depth, *width, source, *ld, destination, scale_times{*scale});
}

// Slot functions: sizes from the source into the packed view, depth first.
[[gnu::always_inline]] inline void copy_a(tesh_blas_sgemm_scopy_fn *pack, const blas_matrix_view *source,
                                          blas_matrix_view *destination, const float *scale)
{
    destination->rows = source->cols;
    destination->cols = source->rows;
    pack(&destination->rows, &destination->cols, static_cast<const float *>(source->base), &source->ld, scale,
         static_cast<float *>(destination->base));
}
[[gnu::always_inline]] inline void copy_b(tesh_blas_sgemm_scopy_fn *pack, const blas_matrix_view *source,
                                          blas_matrix_view *destination, const float *scale)
{
    destination->rows = source->rows;
    destination->cols = source->cols;
    pack(&destination->rows, &destination->cols, static_cast<const float *>(source->base), &source->ld, scale,
         static_cast<float *>(destination->base));
}
} // namespace
