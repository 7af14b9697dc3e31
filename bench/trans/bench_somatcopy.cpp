// SPDX-License-Identifier: BSD-3-Clause
// B := alpha*op(A): squares, rectangles and padded lines, beside copy bandwidth at the same footprint, a plain blocked
// loop and OpenBLAS. GB/s count each element's read and its write.
#include "bench/trans/matcopy_bench.h"

namespace
{
using tesh_bench::matcopy_case;

std::vector<matcopy_case> cases(const std::string &set)
{
    std::vector<matcopy_case> list;
    const bool all = set == "all";
    if (all || set == "square") {
        for (std::int64_t n :
             {16, 32, 64, 100, 128, 200, 256, 500, 512, 1000, 1024, 2000, 2048, 4000, 4096, 8000, 8192})
            list.push_back({"square", 'R', 'T', n, n, 1.0f, 0, 0});
        for (std::int64_t n : {256, 1000, 1024, 4096})
            list.push_back({"square", 'C', 'T', n, n, 1.0f, 0, 0});
    }
    if (all || set == "rectangle")
        for (char ordering : {'R', 'C'})
            for (auto [m, n] :
                 {std::pair(4, 250000), std::pair(250000, 4), std::pair(100, 10000), std::pair(1000, 3000)})
                list.push_back({"rectangle", ordering, 'T', m, n, 1.0f, 0, 0});
    if (all || set == "padded")
        for (char ordering : {'R', 'C'})
            for (std::int64_t n : {256, 512, 1024, 2048, 4096, 8192})
                list.push_back({"padded", ordering, 'T', n, n, 1.0f, 16, 16});
    if (all || set == "scaled") {
        for (std::int64_t n : {16, 64, 256, 1000, 1024, 2048, 4096, 8192})
            list.push_back({"scaled", 'R', 'T', n, n, 2.0f, 0, 0});
        for (char ordering : {'R', 'C'})
            for (auto [m, n] :
                 {std::pair(4, 250000), std::pair(250000, 4), std::pair(100, 10000), std::pair(1000, 3000)})
                list.push_back({"scaled", ordering, 'T', m, n, 2.0f, 0, 0});
    }
    if (all || set == "copy") {
        for (std::int64_t n : {64, 256, 1000, 2048, 4096})
            for (float alpha : {1.0f, 2.0f})
                for (std::int64_t pad : {0, 16})
                    list.push_back({"copy", 'R', 'N', n, n, alpha, pad, pad});
    }
    return list;
}
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Scaled copy and transposition, out of place");
    std::string set = "all";
    std::size_t offset = 0;
    app.add_option("--set", set, "square, rectangle, padded, scaled, copy or all");
    app.add_option("--offset", offset, "floats by which B begins behind a page");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    const std::vector<tesh_bench::peer> peers = tesh_bench::load_peers(run);
    auto *const openblas = tesh_bench::openblas_routine<tesh_bench::somatcopy_peer>(peers, "somatcopy");
    tesh_trans_somatcopy2_fn *const ours = run.isa == "def"    ? tesh_trans_def_tesh_somatcopy2_seq
                                           : run.isa == "mc3"  ? tesh_trans_mc3_tesh_somatcopy2_seq
                                           : run.isa == "avx2" ? tesh_trans_avx2_tesh_somatcopy2_seq
                                                               : tesh_trans_avx512_tesh_somatcopy2_seq;
    tesh_bench::csv out(tesh_bench::matcopy_header());
    for (const matcopy_case &c : cases(set)) {
        const tesh_bench::pages from(c.source_size()), to(c.target_size() + 1088 / 4, offset + 1088 / 4);
        const float *const a = from.data();
        float *const b = to.data();
        const std::int64_t lda = c.lda(), ldb = c.ldb();
        std::vector<tesh_bench::contestant> contestants;
        contestants.emplace_back([=] {
            ours(c.ordering, c.trans, static_cast<uint64_t>(c.rows), static_cast<uint64_t>(c.cols), c.alpha, a,
                 static_cast<uint64_t>(lda), 1, b, static_cast<uint64_t>(ldb), 1);
        });
        contestants.emplace_back([=] { tesh_bench::plain_blocked_copy(c, a, b); });
        if (openblas != nullptr)
            contestants.emplace_back(
                [=] { openblas(&c.ordering, &c.trans, &c.rows, &c.cols, &c.alpha, a, &lda, b, &ldb); });
        contestants[0].work(1);
        tesh_bench::expect_copied(c, a, b, "tesh");
        const auto times = tesh_bench::compare(contestants, run.case_ms);
        const double limit = tesh_bench::bandwidth(tesh_bench::traffic::copy, tesh_bench::lanes(run.isa),
                                                   static_cast<std::size_t>(c.moved()));
        const double speed = c.moved() / times[0].median;
        tesh_bench::begin_line(out, c, run.isa)
            .count(static_cast<std::int64_t>(offset))
            .number(speed * 1e-9)
            .number(speed / limit)
            .number(limit * 1e-9)
            .number(c.moved() / times[1].median * 1e-9)
            .number(openblas != nullptr ? c.moved() / times[2].median * 1e-9 : 0.0)
            .number(openblas != nullptr ? times[2].ratio : 0.0)
            .end();
    }
    return 0;
}
