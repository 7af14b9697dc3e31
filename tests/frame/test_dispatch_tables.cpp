// SPDX-License-Identifier: BSD-3-Clause
// Every dispatcher binds to its own family's member of the path that the processor and the setting stand for.
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <string>

#include "frame/service/dispatch.h"
#include "gemm/sgemm_paths.h"
#include "gemm/sgemmger_paths.h"
#include "tests/support/detour.h"
#include "tests/support/vcpu/in_process.h"
#include "trans/trans_paths.h"
#include "vector/matrix_vector_paths.h"
#include "vector/vector_paths.h"

namespace
{
int family_that_ran, row_that_ran;

// What stands in a member's place.
template <int family, int row> void note()
{
    family_that_ran = family;
    row_that_ran = row;
}

// Zeros and null pointers: nothing but the dispatcher itself looks at them.
template <class Result, class... Args> void call_with_nothing(Result (*dispatcher)(Args...))
{
    dispatcher(Args()...);
}

template <int family, int row = 0, class Member, class... Members>
void put_recorders(Member *member, Members *...members)
{
    tesh_test::detour_address(reinterpret_cast<void *>(member), reinterpret_cast<void *>(note<family, row>));
    if constexpr (sizeof...(members) > 0)
        put_recorders<family, row + 1>(members...);
}

struct dispatched_family {
    const char *name;
    bool of_blas_kind; // with a cnr_def member
    void (*put)();
    void (*call)();
};

template <int family, auto dispatcher, auto... members> constexpr dispatched_family blas_family(const char *name)
{
    static_assert(sizeof...(members) == dispatch_path_count, "a member a path");
    return {name, true, [] { put_recorders<family>(members...); }, [] { call_with_nothing(dispatcher); }};
}

// Rows of such a table that are def stand for cnr_def as well: recorded is row 0, then mc3, avx2, avx512 as rows 1 to 3.
template <int family, auto dispatcher, auto... members> constexpr dispatched_family table_family(const char *name)
{
    static_assert(sizeof...(members) == dispatch_path_count - 1, "a member a path but cnr_def");
    return {name, false, [] { put_recorders<family>(members...); }, [] { call_with_nothing(dispatcher); }};
}

constexpr dispatched_family families[] = {
    blas_family<0, tesh_blas_xsaxpby, tesh_blas_def_xsaxpby, tesh_blas_cnr_def_xsaxpby, tesh_blas_mc3_xsaxpby,
                tesh_blas_avx2_xsaxpby, tesh_blas_avx512_xsaxpby>("saxpby"),
    blas_family<1, tesh_blas_xsaxpy, tesh_blas_def_xsaxpy, tesh_blas_cnr_def_xsaxpy, tesh_blas_mc3_xsaxpy,
                tesh_blas_avx2_xsaxpy, tesh_blas_avx512_xsaxpy>("saxpy"),
    blas_family<2, tesh_blas_xscopy, tesh_blas_def_xscopy, tesh_blas_cnr_def_xscopy, tesh_blas_mc3_xscopy,
                tesh_blas_avx2_xscopy, tesh_blas_avx512_xscopy>("scopy"),
    blas_family<3, tesh_blas_xsscal, tesh_blas_def_xsscal, tesh_blas_cnr_def_xsscal, tesh_blas_mc3_xsscal,
                tesh_blas_avx2_xsscal, tesh_blas_avx512_xsscal>("sscal"),
    blas_family<4, tesh_blas_xsswap, tesh_blas_def_xsswap, tesh_blas_cnr_def_xsswap, tesh_blas_mc3_xsswap,
                tesh_blas_avx2_xsswap, tesh_blas_avx512_xsswap>("sswap"),
    blas_family<5, tesh_blas_xsrot, tesh_blas_def_xsrot, tesh_blas_cnr_def_xsrot, tesh_blas_mc3_xsrot,
                tesh_blas_avx2_xsrot, tesh_blas_avx512_xsrot>("srot"),
    blas_family<6, tesh_blas_xsnrm2, tesh_blas_def_xsnrm2, tesh_blas_cnr_def_xsnrm2, tesh_blas_mc3_xsnrm2,
                tesh_blas_avx2_xsnrm2, tesh_blas_avx512_xsnrm2>("snrm2"),
    blas_family<7, tesh_blas_xsgemv, tesh_blas_def_xsgemv, tesh_blas_cnr_def_xsgemv, tesh_blas_mc3_xsgemv,
                tesh_blas_avx2_xsgemv, tesh_blas_avx512_xsgemv>("sgemv"),
    blas_family<8, tesh_blas_xsger, tesh_blas_def_xsger, tesh_blas_cnr_def_xsger, tesh_blas_mc3_xsger,
                tesh_blas_avx2_xsger, tesh_blas_avx512_xsger>("sger"),
    blas_family<9, tesh_blas_xstrmv, tesh_blas_def_xstrmv, tesh_blas_cnr_def_xstrmv, tesh_blas_mc3_xstrmv,
                tesh_blas_avx2_xstrmv, tesh_blas_avx512_xstrmv>("strmv"),
    blas_family<10, tesh_blas_xsgemm, tesh_blas_def_xsgemm, tesh_blas_cnr_def_xsgemm, tesh_blas_mc3_xsgemm,
                tesh_blas_avx2_xsgemm, tesh_blas_avx512_xsgemm>("sgemm"),
    blas_family<11, tesh_blas_xsgemmger, tesh_blas_def_xsgemmger, tesh_blas_cnr_def_xsgemmger, tesh_blas_mc3_xsgemmger,
                tesh_blas_avx2_xsgemmger, tesh_blas_avx512_xsgemmger>("sgemmger"),
    table_family<12, tesh_trans_tesh_simatcopy, tesh_trans_def_tesh_simatcopy, tesh_trans_mc3_tesh_simatcopy,
                 tesh_trans_avx2_tesh_simatcopy, tesh_trans_avx512_tesh_simatcopy>("simatcopy"),
    table_family<13, tesh_trans_tesh_somatcopy, tesh_trans_def_tesh_somatcopy, tesh_trans_mc3_tesh_somatcopy,
                 tesh_trans_avx2_tesh_somatcopy, tesh_trans_avx512_tesh_somatcopy>("somatcopy"),
    table_family<14, tesh_trans_tesh_somatcopy2_seq, tesh_trans_def_tesh_somatcopy2_seq,
                 tesh_trans_mc3_tesh_somatcopy2_seq, tesh_trans_avx2_tesh_somatcopy2_seq,
                 tesh_trans_avx512_tesh_somatcopy2_seq>("somatcopy2_seq"),
};

struct bound_path {
    const char *profile, *setting; // TESH_CBWR, "" for none
    int blas_row, table_row;       // recorded
};
constexpr bound_path bound_paths[] = {
    {"ssse3", "", 0, 0}, {"ssse3", "COMPATIBLE", 1, 0}, {"sse4_2", "", 2, 1}, {"avx2", "", 3, 2}, {"avx512", "", 4, 3},
};
} // namespace

TEST(dispatch_tables, hold_the_members_of_their_family_in_the_order_of_the_paths)
{
    for (const bound_path &path : bound_paths) {
        tesh_test::on_processor(path.profile, {{"TESH_CBWR", path.setting}}, [&] {
            for (int f = 0; f < static_cast<int>(std::size(families)); ++f) {
                const dispatched_family &family = families[f];
                family.put();
                family_that_ran = row_that_ran = -1;
                for (int call = 0; call < 2; ++call) { // unbound, bound
                    family.call();
                    EXPECT_EQ(family_that_ran, f) << family.name << " on " << path.profile;
                    EXPECT_EQ(row_that_ran, family.of_blas_kind ? path.blas_row : path.table_row)
                        << family.name << " on " << path.profile << ' ' << path.setting;
                }
            }
        });
    }
}
