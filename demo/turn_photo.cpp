// SPDX-License-Identifier: BSD-3-Clause
// Turns a photograph by 90 degrees, clockwise: a transposition, then the columns in reverse order. Once out of place,
// once in place; the two must agree. Says what the transpositions took, beside a plain copy of the same bytes.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>

#include "demo/photo.h"
#include "tesh.h"

namespace
{
double best_seconds(const std::function<void()> &work)
{
    double best = 1e30;
    for (int call = 0; call < 10; ++call) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void mirror(photo &picture)
{
    const auto column = [&](int64_t col) {
        return picture.grey.begin() + static_cast<std::ptrdiff_t>(col * picture.rows);
    };
    for (int64_t left = 0, right = picture.cols - 1; left < right; ++left, --right)
        std::swap_ranges(column(left), column(left + 1), column(right));
}
} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s IN.png OUT.png\n", argv[0]);
        return 1;
    }
    const photo picture = read_photo(argv[1]);
    const size_t rows = static_cast<size_t>(picture.rows), cols = static_cast<size_t>(picture.cols);
    photo turned, in_place = picture;
    turned.rows = in_place.rows = picture.cols;
    turned.cols = in_place.cols = picture.rows;
    turned.grey.resize(picture.grey.size());

    const double out_of_place = best_seconds(
        [&] { TESH_Somatcopy('C', 'T', rows, cols, 1.0f, picture.grey.data(), rows, turned.grey.data(), cols); });
    const double copy = best_seconds([&] {
        std::memcpy(in_place.grey.data(), picture.grey.data(), picture.grey.size() * sizeof(float));
        __asm__ volatile("" ::: "memory");
    });
    // A copy and a transposition in turn, so that every transposition starts from the picture.
    const double both = best_seconds([&] {
        std::memcpy(in_place.grey.data(), picture.grey.data(), picture.grey.size() * sizeof(float));
        TESH_Simatcopy('C', 'T', rows, cols, 1.0f, in_place.grey.data(), rows, cols);
    });
    const bool same = turned.grey == in_place.grey;
    mirror(turned);
    write_photo(argv[2], turned);

    const double gigabytes = 2.0 * static_cast<double>(picture.grey.size() * sizeof(float)) * 1e-9;
    const auto line = [&](const char *what, double seconds) {
        std::printf("  %-12s %8.3f ms  %6.1f GB/s  %5.1f %% of the copy\n", what, seconds * 1e3, gigabytes / seconds,
                    100.0 * copy / seconds);
    };
    std::printf("turned       %s by 90 degrees (best of ten)\n", argv[1]);
    line("out of place", out_of_place);
    line("in place", both - copy);
    line("plain copy", copy);
    std::printf("wrote        %s; in place and out of place %s\n", argv[2], same ? "agree" : "DIFFER");
    return same ? 0 : 1;
}
