// SPDX-License-Identifier: BSD-3-Clause
// Compresses a photograph: X -> F = D X D^T (two-dimensional cosine transform, DCT-II of Ahmed, Natarajan and Rao,
// 1974, in its orthonormal form), keeps the largest 5 % of the coefficients, and transforms back, X' = D^T F D. Four
// calls of SGEMM do the work; the program says what they took, on which code path, and how good the picture still is.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "demo/photo.h"
#include "tesh.h"

namespace
{
constexpr double kept_share = 0.05;
constexpr double pi = 3.14159265358979323846;

using matrix = std::vector<float>;

// Row f of the n x n matrix samples the cosine of frequency f.
matrix cosine_transform(int64_t n)
{
    matrix d(static_cast<size_t>(n * n));
    for (int64_t f = 0; f < n; ++f)
        for (int64_t x = 0; x < n; ++x) {
            const double scale = std::sqrt((f == 0 ? 1.0 : 2.0) / static_cast<double>(n));
            const double angle = pi * static_cast<double>((2 * x + 1) * f) / static_cast<double>(2 * n);
            d[static_cast<size_t>(x * n + f)] = static_cast<float>(scale * std::cos(angle));
        }
    return d;
}

// C := op(A)*op(B), timed (the best of three calls), with its line of the report.
void product(const char *what, const char *transa, const char *transb, int64_t m, int64_t n, int64_t k, const matrix &a,
             int64_t lda, const matrix &b, int64_t ldb, matrix &c)
{
    const float one = 1.0f, zero = 0.0f;
    double best = 1e30;
    for (int call = 0; call < 3; ++call) {
        const auto start = std::chrono::steady_clock::now();
        sgemm_(transa, transb, &m, &n, &k, &one, a.data(), &lda, b.data(), &ldb, &zero, c.data(), &m);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        best = std::min(best, took.count());
    }
    const double flops = 2.0 * static_cast<double>(m) * static_cast<double>(n) * static_cast<double>(k);
    std::printf("  %-10s %5lld x %lld x %lld  %8.2f ms  %8.1f GFLOP/s\n", what, static_cast<long long>(m),
                static_cast<long long>(n), static_cast<long long>(k), best * 1e3, flops / best * 1e-9);
}

// Sets all but the largest coefficients to zero; answers how many stay.
size_t keep_largest(matrix &f)
{
    const size_t keep = static_cast<size_t>(kept_share * static_cast<double>(f.size()));
    matrix magnitude(f.size());
    std::transform(f.begin(), f.end(), magnitude.begin(), [](float x) { return std::fabs(x); });
    std::nth_element(magnitude.begin(), magnitude.begin() + static_cast<std::ptrdiff_t>(keep), magnitude.end(),
                     [](float x, float y) { return x > y; });
    const float threshold = magnitude[keep];
    size_t kept = 0;
    for (float &x : f) {
        if (std::fabs(x) > threshold)
            ++kept;
        else
            x = 0.0f;
    }
    return kept;
}

double psnr(const matrix &x, const matrix &y) // [dB], peak 255
{
    double squares = 0.0;
    for (size_t i = 0; i < x.size(); ++i) {
        const double difference = static_cast<double>(x[i]) - static_cast<double>(y[i]);
        squares += difference * difference;
    }
    return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(x.size()) / squares);
}

std::string processor_name()
{
    std::string name = "unknown";
    if (FILE *info = std::fopen("/proc/cpuinfo", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, info) != nullptr)
            if (std::strncmp(line, "model name", 10) == 0) {
                name = std::strchr(line, ':') + 2;
                name.pop_back();
                break;
            }
        std::fclose(info);
    }
    return name;
}

void report_path()
{
    const int32_t type = tesh_serv_cpu_detect();
    const bool branch = tesh_serv_cbwr_get(1) != 1;
    const char *path = type == 7 ? "avx512" : type == 5 ? "avx2" : type == 3 ? "mc3" : branch ? "cnr_def" : "def";
    const char *trusted = std::getenv("TESH_TRUSTED_VENDORS");
    const char *limit = std::getenv("TESH_ENABLE_INSTRUCTIONS");
    const bool accepted = tesh_serv_get_cpu_true()() == 1;
    std::printf("processor    %s\n", processor_name().c_str());
    std::printf("path         %s: processor type %d, fine number %d; vendor %s (TESH_TRUSTED_VENDORS=%s), instruction "
                "limit %s\n",
                path, type, tesh_serv_get_cpu_type(1), accepted ? "accepted" : "not accepted, so the baseline",
                trusted != nullptr ? trusted : "", limit != nullptr ? limit : "none");
}
} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s IN.png OUT.png\n", argv[0]);
        return 1;
    }
    const photo picture = read_photo(argv[1]);
    const int64_t r = picture.rows, c = picture.cols;
    std::printf("photograph   %s, %lld x %lld\n", argv[1], static_cast<long long>(c), static_cast<long long>(r));
    report_path();

    const matrix dr = cosine_transform(r), dc = cosine_transform(c);
    matrix half(picture.grey.size()), f(picture.grey.size());
    photo restored = picture;
    std::printf("products     (best of three calls)\n");
    product("D X", "N", "N", r, c, r, dr, r, picture.grey, r, half);
    product("(D X) D^T", "N", "T", r, c, c, half, r, dc, c, f);
    const size_t kept = keep_largest(f);
    product("D^T F", "T", "N", r, c, r, dr, r, f, r, half);
    product("(D^T F) D", "N", "N", r, c, c, half, r, dc, c, restored.grey);
    std::printf("kept         %zu of %zu coefficients (%.1f %%)\n", kept, f.size(),
                100.0 * static_cast<double>(kept) / static_cast<double>(f.size()));
    const double quality = psnr(picture.grey, restored.grey);
    std::printf("PSNR         %.2f dB\n", quality);
    write_photo(argv[2], restored);
    std::printf("wrote        %s\n", argv[2]);

    std::printf("verbose      (TESH_VERBOSE=1 prints such lines)\n");
    std::fflush(stdout);
    tesh_serv_verbose(1);
    cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, r, c, r, 1.0f, dr.data(), r, picture.grey.data(), r, 0.0f,
                half.data(), r);
    tesh_serv_verbose(0);
    return quality > 30.0 ? 0 : 1; // a picture that is no better than that was not computed right
}
