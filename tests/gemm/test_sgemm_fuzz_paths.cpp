// SPDX-License-Identifier: BSD-3-Clause
// SGEMM on drawn shapes, letters, factors, gaps, alignments and operands against a double-precision reference: the path
// routine by its own name, and the public names on every processor that ends there. A run draws the same cases in the
// same order for the same seed, for as long as its set gives it; TESH_FUZZ_SECONDS gives another time.
#include <immintrin.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "frame/tesh_blas.h"
#include "frame/tesh_serv.h"
#include "gemm/sgemm_paths.h"
#include "tests/support/failing_memory.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"
#include "tests/support/vcpu/fma4.h"
#include "tests/support/vcpu/in_process.h"

namespace
{
namespace memory = tesh_test::failing_memory;
using product = std::function<tesh_blas_sgemm_fn>;
using tesh_test::gemm_operands;
using tesh_test::gemm_shape;
using tesh_test::gemm_values;
using tesh_test::guard;
using clock = std::chrono::steady_clock;

constexpr std::int64_t most_products = 2'000'000; // of a case: the reference takes a nanosecond for each
constexpr float infinity = std::numeric_limits<float>::infinity();
const float nan = std::nanf(""), signalling = std::numeric_limits<float>::signaling_NaN();

double seconds_of_a_test()
{
    const char *text = std::getenv("TESH_FUZZ_SECONDS");
    return text != nullptr              ? std::atof(text)
           : tesh_test::in_long_set()   ? 75.0
           : tesh_test::in_medium_set() ? 10.0
                                        : 1.0;
}

class drawer
{
public:
    drawer(std::uint64_t stream, std::int64_t volume) : r_(stream), volume_(volume) {}

    gemm_shape shape()
    {
        gemm_shape s;
        draw_product(&s);
        s.alpha = factor();
        s.beta = factor();
        s.pad_a = pad(s.lda());
        s.pad_b = pad(s.ldb());
        s.pad_c = pad(s.ldc());
        s.side = below(2) == 0 ? guard::at_end : guard::at_start;
        s.shift_bytes = static_cast<std::size_t>(4 * below(16));
        return s;
    }
    std::int64_t below(std::int64_t bound) { return r_.below(bound); }
    std::uint64_t stream() { return r_.next(); }

private:
    // Letters and sizes: all small, the roads of a few columns and of 6 by 6, or anything.
    void draw_product(gemm_shape *s)
    {
        const char letters[] = {'N', 'n', 'T', 't', 'C', 'c'};
        s->transa = letters[below(6)];
        s->transb = letters[below(6)];
        switch (below(12)) {
        case 0:
        case 1:
        case 2:
            s->m = below(17);
            s->n = below(17);
            s->k = below(17);
            break;
        case 3:
            s->transa = letters[2 + below(2)];
            s->transb = letters[below(2)];
            s->m = 1 + below(20);
            s->n = 2 + below(14);
            s->k = 24 * s->n + below(300) - 2;
            break;
        case 4:
            s->transa = letters[below(2)];
            s->transb = letters[below(2)];
            s->m = s->k = 6;
            s->n = 2 + below(20);
            break;
        default:
            s->m = size();
            s->n = size();
            s->k = size();
            while (s->m * s->n * s->k > volume_)
                (below(3) == 0 ? s->m : below(2) == 0 ? s->n : s->k) = below(40);
        }
    }
    // Around a tile, a block or a threshold; small; middling; long.
    std::int64_t size()
    {
        constexpr std::int64_t edges[] = {4,   8,   11,  12,  16,  24,  48,  56,  64,  72,  96,  112, 128,
                                          144, 160, 192, 224, 256, 360, 384, 512, 576, 640, 768, 1536};
        switch (below(8)) {
        case 0:
        case 1:
        case 2:
            return edges[below(25)] + below(5) - 2;
        case 3:
        case 4:
            return 1 + below(20);
        case 5:
        case 6:
            return 1 + below(200);
        default:
            return below(8) == 0 ? 0 : below(6100);
        }
    }
    float factor()
    {
        const float factors[] = {0.0f, -0.0f, -1.0f, 2.0f, 0.7f, -1.3f, 1e-3f, nan};
        return below(2) == 0 ? 1.0f : factors[below(16) == 0 ? 7 : below(7)];
    }
    // None, a few elements, or up to a whole number of pages.
    std::int64_t pad(std::int64_t least)
    {
        const std::int64_t kind = below(16);
        return kind < 8 ? 0 : kind < 15 ? 1 + below(7) : least > 1024 ? 0 : 1024 - least;
    }

    tesh_test::random r_;
    std::int64_t volume_;
};

// A few elements become one of the first kinds of: infinite, negatively so, NaN.
void spoil(tesh_test::guarded_array<float> &x, std::int64_t kinds, drawer &d)
{
    const float values[] = {infinity, -infinity, nan};
    for (std::int64_t left = x.size() == 0 ? 0 : d.below(3); left > 0; --left)
        x[static_cast<std::size_t>(d.below(static_cast<std::int64_t>(x.size())))] = values[d.below(kinds)];
}

// Products around the least normal number, where a sum loses bits to underflow.
void shrink(tesh_test::guarded_array<float> &x)
{
    for (float &value : x)
        value = std::ldexp(value, -68);
}

// Between the columns stand signalling NaNs: arithmetic on one raises a flag, even in a lane that nobody looks at.
void poison_gaps(tesh_test::guarded_array<float> &x, std::int64_t rows, std::int64_t cols, std::int64_t ld)
{
    for (std::int64_t j = 0; j + 1 < cols && rows > 0; ++j)
        std::fill_n(x.data() + j * ld + rows, ld - rows, signalling);
}

void check_case(const product &sgemm, drawer &d, tesh_test::worst_ratio *worst)
{
    const gemm_shape s = d.shape();
    const bool integers = d.below(2) == 0;
    gemm_operands x(s, integers ? gemm_values::integers : gemm_values::uniform, d.stream());
    const std::int64_t kind = d.below(12);
    const bool spoilt = kind == 0, tiny = kind == 1;
    if (spoilt) {
        spoil(x.a, 3, d);
        spoil(x.b, 3, d);
    }
    // Infinities among positive numbers: none meets a zero or its opposite, unless a register's idle lanes bring one.
    const bool positive = kind == 2 && !(s.alpha < 0.0f) && !(s.beta < 0.0f);
    if (positive) {
        for (tesh_test::guarded_array<float> *operand : {&x.a, &x.b, &x.c})
            for (float &value : *operand)
                value = std::fabs(value) + 0.5f;
        spoil(x.a, 1, d);
        spoil(x.b, 1, d);
    }
    if (tiny) {
        shrink(x.a);
        shrink(x.b);
    }
    if (s.beta == 0.0f)
        std::fill(x.c.begin(), x.c.end(), signalling);
    poison_gaps(x.a, s.a_rows(), s.a_cols(), s.lda());
    poison_gaps(x.b, s.b_rows(), s.b_cols(), s.ldb());
    poison_gaps(x.c, s.m, s.n, s.ldc());
    x.keep_c();
    if (d.below(8) == 0) {
        tesh_serv_free_buffers();
        memory::refuse(1 + d.below(2), memory::refusal::from_there_on);
    }
    const unsigned quiet = _mm_getcsr() & ~0x3fu;
    _mm_setcsr(quiet);
    x.run(sgemm);
    const unsigned state = _mm_getcsr();
    memory::refuse(0);
    ASSERT_EQ(state & ~0x3fu, quiet) << s.name() << ": the control word changed";
    const unsigned raised = state & 0xdu; // invalid, division by zero, overflow
    ASSERT_EQ(spoilt ? 0u : raised, 0u) << s.name() << ": a flag was raised";
    const bool whole = s.alpha == std::trunc(s.alpha) && s.beta == std::trunc(s.beta);
    tesh_test::expect_gemm_result(x, integers && whole && !tiny && !positive, worst);
}

// Cases until the time is over or one is wrong. draw chooses what computes a case.
void fuzz(std::uint64_t number, double seconds, std::int64_t volume, const std::function<product(drawer &)> &draw)
{
    tesh_test::worst_ratio worst;
    drawer d(number << 32, volume);
    std::int64_t count = 0;
    const auto end = clock::now() + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
    for (; clock::now() < end; ++count) {
        check_case(draw(d), d, &worst);
        if (testing::Test::HasFatalFailure()) {
            std::printf("case %lld of run %llu is wrong\n", static_cast<long long>(count),
                        static_cast<unsigned long long>(number));
            return;
        }
    }
    std::printf("%lld cases, worst error / bound: %.3f\n", static_cast<long long>(count), worst.value);
    EXPECT_GT(count, 0);
    EXPECT_LE(worst.value, 1.0);
}

tesh_blas_sgemm_fn *routine_of(const std::string &path)
{
    return path == "def"       ? tesh_blas_def_xsgemm
           : path == "cnr_def" ? tesh_blas_cnr_def_xsgemm
           : path == "mc3"     ? tesh_blas_mc3_xsgemm
           : path == "avx2"    ? tesh_blas_avx2_xsgemm
                               : tesh_blas_avx512_xsgemm;
}

struct processor {
    const char *path;    // that SGEMM takes there
    const char *profile; // of the virtual processor
    const char *branch;  // reproducibility setting, or empty
    const char *needs;   // path that the machine must have for its kernels
    std::int64_t volume; // of a case
};

constexpr processor processors[] = {
    {"def", "sse3", "", "def", most_products},
    {"def", "amd_zen", "", "def_zen", most_products},
    {"def", "amd_barcelona", "", "def", most_products},
    {"def", "amd_bulldozer", "", "def_zen", 20'000}, // whose kernel is emulated instruction by instruction
    {"cnr_def", "sse3", "COMPATIBLE", "cnr_def", most_products},
    {"cnr_def", "amd_zen", "COMPATIBLE", "def_zen", most_products},
    {"mc3", "sse4_2", "", "mc3", most_products},
    {"mc3", "sse4_2", "SSE4_2,STRICT", "mc3", most_products},
    {"avx2", "avx2", "", "avx2", most_products},
    {"avx2", "avx2", "AVX2,STRICT", "avx2", most_products},
    {"avx512", "avx512", "", "avx512", most_products},
    {"avx512", "avx512", "AVX512,STRICT", "avx512", most_products},
};

std::int32_t code_of(char letter)
{
    return tesh_test::counts_as_n(letter) ? CblasNoTrans : (letter & 0xdf) == 'T' ? CblasTrans : CblasConjTrans;
}

void by_columns(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
                const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
                const float *beta, float *c, const int64_t *ldc)
{
    cblas_sgemm(CblasColMajor, code_of(*transa), code_of(*transb), *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c,
                *ldc);
}
// The column-major product is the row-major one of its factors in the other order.
void by_rows(const char *transa, const char *transb, const int64_t *m, const int64_t *n, const int64_t *k,
             const float *alpha, const float *a, const int64_t *lda, const float *b, const int64_t *ldb,
             const float *beta, float *c, const int64_t *ldc)
{
    cblas_sgemm(CblasRowMajor, code_of(*transb), code_of(*transa), *n, *m, *k, *alpha, b, *ldb, a, *lda, *beta, c,
                *ldc);
}

class sgemm_fuzz : public testing::TestWithParam<std::string>
{
protected:
    // Of the runs of this test: every path and test draws cases of its own.
    static std::uint64_t first_number()
    {
        const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
        std::uint64_t number = 0;
        for (const char letter : name)
            number = number * 31 + static_cast<unsigned char>(letter);
        return number;
    }
};

// Drawn on the wide paths as well: the reproducible mode, which packs every shape.
TEST_P(sgemm_fuzz, path_routine)
{
    memory::install();
    const std::int32_t free_setting = tesh_serv_cbwr_get(-1);
    fuzz(first_number(), seconds_of_a_test(), most_products, [&](drawer &d) {
        tesh_cbwr = d.below(4) == 0 ? 0x10001 : free_setting;
        return routine_of(GetParam());
    });
    tesh_cbwr = free_setting;
}

TEST_P(sgemm_fuzz, public_names)
{
    std::vector<processor> mine;
    for (const processor &p : processors)
        if (GetParam() == p.path && tesh_test::machine_has_path(p.needs))
            mine.push_back(p);
    std::uint64_t number = first_number();
    for (const processor &p : mine) {
        const auto child = tesh_test::on_processor(p.profile, {{"TESH_CBWR", p.branch}}, [&] {
            memory::install();
            if (std::string(p.profile) == "amd_bulldozer")
                tesh_test::install_fma4_emulation();
            fuzz(number, seconds_of_a_test() / static_cast<double>(mine.size()), p.volume, [](drawer &d) {
                tesh_blas_sgemm_fn *const names[] = {sgemm_, by_columns, by_rows};
                return names[d.below(3)];
            });
        });
        EXPECT_EQ(child.exit_code, 0) << p.profile;
        std::printf("%s %s:\n%s", p.profile, p.branch, child.out.c_str());
        ++number;
    }
}

INSTANTIATE_TEST_SUITE_P(paths, sgemm_fuzz, testing::ValuesIn(tesh_test::paths_to_run()),
                         [](const auto &path) { return path.param; });
} // namespace
