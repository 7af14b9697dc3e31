// SPDX-License-Identifier: BSD-3-Clause
// AB := alpha*op(AB): squares, rectangles, scaling and lines that change length, beside in-place scale bandwidth at the
// same footprint, a plain blocked loop (squares) and OpenBLAS. GB/s count each element's read and its write. Each turn
// transposes what the last one left.
#include "bench/trans/matcopy_bench.h"

namespace
{
using tesh_bench::matcopy_case;

constexpr std::int64_t peer_ldb_most = 100000;

std::vector<matcopy_case> cases(const std::string &set)
{
    std::vector<matcopy_case> list;
    const bool all = set == "all";
    if (all || set == "square") {
        for (std::int64_t n :
             {16, 32, 64, 128, 200, 256, 257, 500, 512, 1000, 1024, 2000, 2048, 4000, 4096, 8000, 8192})
            list.push_back({"square", 'C', 'T', n, n, 1.0f, 0, 0});
        for (std::int64_t n : {256, 1000, 1024, 4096})
            list.push_back({"square", 'R', 'T', n, n, 1.0f, 0, 0});
    }
    if (all || set == "padded")
        for (std::int64_t n : {256, 512, 1000, 1024, 2048, 4096, 8192})
            list.push_back({"padded", 'C', 'T', n, n, 1.0f, 16, 16});
    if (all || set == "scaled")
        for (std::int64_t n : {16, 64, 128, 256, 1000, 1024, 2048, 4096, 8192})
            list.push_back({"scaled", 'C', 'T', n, n, -1.0f, 0, 0});
    if (all || set == "rectangle")
        for (char ordering : {'R', 'C'})
            for (float alpha : {1.0f, -1.0f})
                for (auto [m, n] : {std::pair(4, 250000), std::pair(30, 40), std::pair(100, 10000),
                                    std::pair(250000, 4), std::pair(1000, 3000)})
                    list.push_back({"rectangle", ordering, 'T', m, n, alpha, 0, 0});
    if (all || set == "copy")
        for (std::int64_t n : {64, 256, 1000, 2048, 4096}) {
            list.push_back({"block", 'R', 'N', n, n, -1.0f, 0, 0});
            list.push_back({"lines", 'R', 'N', n, n, -1.0f, 16, 16});
            list.push_back({"closer", 'R', 'N', n, n, -1.0f, 16, 0});
            list.push_back({"apart", 'R', 'N', n, n, -1.0f, 0, 16});
        }
    return list;
}
} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Scaled copy and transposition, in place");
    std::string set = "all";
    app.add_option("--set", set, "square, padded, scaled, rectangle, copy or all");
    const tesh_bench::settings run = tesh_bench::start(app, argc, argv);
    const std::vector<tesh_bench::peer> peers = tesh_bench::load_peers(run);
    auto *const openblas = tesh_bench::openblas_routine<tesh_bench::simatcopy_peer>(peers, "simatcopy");
    tesh_trans_simatcopy_fn *const ours = run.isa == "def"    ? tesh_trans_def_tesh_simatcopy
                                          : run.isa == "mc3"  ? tesh_trans_mc3_tesh_simatcopy
                                          : run.isa == "avx2" ? tesh_trans_avx2_tesh_simatcopy
                                                              : tesh_trans_avx512_tesh_simatcopy;
    tesh_bench::csv out(tesh_bench::matcopy_header());
    for (const matcopy_case &c : cases(set)) {
        const std::size_t size = std::max(c.source_size(), c.target_size());
        const tesh_bench::pages array(size), plain(size); // one array for all contestants, so that it stays warm
        const std::int64_t lda = c.lda(), ldb = c.ldb();
        const bool square = c.transposes() && c.rows == c.cols;
        std::vector<tesh_bench::contestant> contestants;
        contestants.emplace_back([=, ab = array.data()] {
            ours(c.ordering, c.trans, static_cast<uint64_t>(c.rows), static_cast<uint64_t>(c.cols), c.alpha, ab,
                 static_cast<uint64_t>(lda), static_cast<uint64_t>(ldb));
        });
        if (square)
            contestants.emplace_back([=, ab = array.data()] { tesh_bench::plain_blocked_square(c, ab); });
        // OpenBLAS 0.3.21 ends the process with "Memory alloc failed" at 250000 x 4 by rows,
        // and at 4 x 250000 by columns.
        const bool fits = square || c.ldb() < peer_ldb_most;
        if (openblas != nullptr && fits)
            contestants.emplace_back([=, ab = array.data()] {
                openblas(&c.ordering, &c.trans, &c.rows, &c.cols, &c.alpha, ab, &lda, &ldb);
            });
        contestants[0].work(1);
        tesh_bench::expect_copied(c, plain.data(), array.data(), "tesh");
        const auto times = tesh_bench::compare(contestants, run.case_ms);
        const double limit = tesh_bench::bandwidth(tesh_bench::traffic::scale, tesh_bench::lanes(run.isa),
                                                   static_cast<std::size_t>(c.moved() / 2));
        const double speed = c.moved() / times[0].median;
        tesh_bench::begin_line(out, c, run.isa)
            .count(0)
            .number(speed * 1e-9)
            .number(speed / limit)
            .number(limit * 1e-9)
            .number(square ? c.moved() / times[1].median * 1e-9 : 0.0)
            .number(openblas != nullptr && fits ? c.moved() / times.back().median * 1e-9 : 0.0)
            .number(openblas != nullptr && fits ? times.back().ratio : 0.0)
            .end();
    }
    return 0;
}
