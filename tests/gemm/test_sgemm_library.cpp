// SPDX-License-Identifier: BSD-3-Clause
// SGEMM through its public name with everything under it in place: every processor's path, the reproducible mode,
// memory that is refused request by request. Each case runs in a child, whose first call binds the path.
#include "frame/tesh_blas.h"
#include "frame/tesh_serv.h"
#include "gemm/sgemm.h"
#include "tests/support/failing_memory.h"
#include "tests/support/reference_gemm.h"
#include "tests/support/test_paths.h"
#include "tests/support/vcpu/fma4.h"
#include "tests/support/vcpu/in_process.h"

namespace
{
namespace memory = tesh_test::failing_memory;
using tesh_test::gemm_shape;
using tesh_test::guard;

struct processor {
    const char *name;    // of the test
    const char *profile; // of the virtual processor
    const char *branch;  // reproducibility setting, or empty
    const char *needs;   // path that the machine must have for its kernels
};

constexpr processor avx2_strict = {"avx2_strict", "avx2", "AVX2,STRICT", "avx2"};
constexpr processor avx512_strict = {"avx512_strict", "avx512", "AVX512,STRICT", "avx512"};
constexpr processor processors[] = {
    {"baseline", "sse3", "", "def"},
    {"baseline_reproducible", "sse3", "COMPATIBLE", "cnr_def"},
    {"sse4_2", "sse4_2", "", "mc3"},
    {"sse4_2_strict", "sse4_2", "SSE4_2,STRICT", "mc3"},
    {"avx2", "avx2", "", "avx2"},
    avx2_strict,
    {"avx512", "avx512", "", "avx512"},
    avx512_strict,
    {"zen", "amd_zen", "", "def_zen"},
    {"bulldozer", "amd_bulldozer", "", "def_zen"},
    {"barcelona", "amd_barcelona", "", "def"},
    {"zen_reproducible", "amd_zen", "COMPATIBLE", "def_zen"},
};

class sgemm_library : public testing::TestWithParam<processor>
{
protected:
    void on_it(const std::function<void()> &body)
    {
        const processor &p = GetParam();
        if (!tesh_test::machine_has_path(p.needs))
            GTEST_SKIP() << "this processor lacks the instructions of the " << p.needs << " kernels";
        tesh_test::on_processor(p.profile, {{"TESH_CBWR", p.branch}}, [&] {
            if (std::string(p.profile) == "amd_bulldozer")
                tesh_test::install_fma4_emulation();
            body();
        });
    }
    bool emulated() const { return std::string(GetParam().profile) == "amd_bulldozer"; }
};

TEST_P(sgemm_library, every_road_gives_the_product)
{
    on_it([&] {
        for (const char transa : {'N', 't'}) {
            for (const char transb : {'N', 'C'}) {
                for (const auto &[m, n, k] : {std::array<std::int64_t, 3>{1, 9, 7},
                                              {9, 1, 7},
                                              {9, 8, 1},
                                              {70, 3, 1},
                                              {1, 1, 1},
                                              {3, 60, 140},
                                              {13, 9, 17},
                                              {37, 21, 19},
                                              {5, 4, 0},
                                              {130, 90, 115}}) {
                    if (emulated() && m * n * k > 20000)
                        continue;
                    tesh_test::expect_gemm(sgemm_, {transa, transb, m, n, k, 2.0f, 3.0f, 1, 2, 3});
                    tesh_test::expect_gemm(sgemm_, {transa, transb, m, n, k, -0.7f, 0.0f, 0, 0, 0, guard::at_start});
                }
            }
        }
    });
}

TEST_P(sgemm_library, every_refused_request_leaves_the_right_product)
{
    on_it([&] {
        memory::install();
        for (const auto &[m, n, k] : {std::array<std::int64_t, 3>{45, 33, 21}, {100, 9, 1}}) {
            for (const memory::refusal how : {memory::refusal::once, memory::refusal::from_there_on}) {
                for (std::int64_t nth = 1;; ++nth) {
                    ASSERT_LT(nth, 100);
                    const tesh_test::gemm_operands x({'T', 'N', m, n, k, 0.7f, 0.3f, 1, 2, 3});
                    tesh_serv_free_buffers();
                    memory::refuse(nth, how);
                    x.run(sgemm_);
                    const bool refused = memory::refused();
                    memory::refuse(0);
                    tesh_test::expect_gemm_result(x, false);
                    if (!refused)
                        break;
                }
            }
        }
    });
}

// Rows computed alone have the bits that they have in the whole product. The strict setting promises that of the wide
// paths, which then pack every shape; the others choose among sums of different order by m.
class sgemm_library_strict : public sgemm_library
{
};
TEST_P(sgemm_library_strict, bits_of_a_row_do_not_depend_on_its_place_or_on_m)
{
    on_it([&] {
        for (const char transa : {'N', 'T'}) {
            for (const char transb : {'N', 'T'}) {
                const gemm_shape s{transa, transb, 101, 13, 150, 0.7f, 0.3f};
                const tesh_test::gemm_operands whole(s);
                whole.run(sgemm_);
                for (const std::int64_t count : {1, 2, 3, 8, 17, 48}) {
                    for (std::int64_t first = 0; first + count <= s.m; first += 7) {
                        const tesh_test::gemm_operands part(s);
                        const std::int64_t lda = s.lda(), ldb = s.ldb(), ldc = s.ldc();
                        sgemm_(&transa, &transb, &count, &s.n, &s.k, &s.alpha,
                               part.a.data() + (transa == 'N' ? first : first * lda), &lda, part.b.data(), &ldb,
                               &s.beta, part.c.data() + first, &ldc);
                        for (std::int64_t j = 0; j < s.n; ++j)
                            ASSERT_EQ(std::memcmp(part.c.data() + j * ldc + first, whole.c.data() + j * ldc + first,
                                                  static_cast<std::size_t>(count) * sizeof(float)),
                                      0)
                                << transa << transb << " rows " << first << " to " << first + count << " column " << j;
                    }
                }
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(processors, sgemm_library, testing::ValuesIn(processors),
                         [](const auto &p) { return std::string(p.param.name); });
INSTANTIATE_TEST_SUITE_P(processors, sgemm_library_strict, testing::Values(avx2_strict, avx512_strict),
                         [](const auto &p) { return std::string(p.param.name); });
} // namespace
