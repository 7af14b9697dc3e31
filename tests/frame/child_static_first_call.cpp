// SPDX-License-Identifier: BSD-3-Clause
// child_static_first_call TYPE: for an emulated processor of the maker. The first call has to detect it as TYPE and to
// give the right result with what that processor has; an instruction beyond ends the program. A static program, since
// the loader of shared libraries refuses a maker that it does not know.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "frame/tesh.h"

namespace
{
// Small integers: every order of the sums gives the same bits.
bool product_is_right(int64_t n)
{
    const auto size = static_cast<size_t>(n * n);
    std::vector<float> a(size), b(size), c(size, 9.0f), expected(size);
    for (size_t i = 0; i < size; ++i) {
        a[i] = static_cast<float>(i % 5) - 2.0f;
        b[i] = static_cast<float>(i % 7) - 3.0f;
    }
    for (int64_t j = 0; j < n; ++j) {
        for (int64_t l = 0; l < n; ++l) {
            for (int64_t i = 0; i < n; ++i)
                expected[static_cast<size_t>(i + j * n)] +=
                    2.0f * a[static_cast<size_t>(i + l * n)] * b[static_cast<size_t>(l + j * n)];
        }
    }
    cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 2.0f, a.data(), n, b.data(), n, 0.0f, c.data(), n);
    return c == expected;
}

bool sum_is_right()
{
    float x[100], y[100];
    for (int i = 0; i < 100; ++i) {
        x[i] = static_cast<float>(i);
        y[i] = 1.0f;
    }
    cblas_saxpby(100, 2.0f, x, 1, 3.0f, y, 1);
    for (int i = 0; i < 100; ++i) {
        if (y[i] != 2.0f * static_cast<float>(i) + 3.0f)
            return false;
    }
    return true;
}
} // namespace

int main(int, char **argv)
{
    bool good = sum_is_right();
    for (const int64_t n : {1, 5, 9, 33, 70, 130})
        good = product_is_right(n) && good;
    const int type = tesh_serv_cpu_detect();
    std::printf("type %d, results %s\n", type, good ? "right" : "wrong");
    return good && type == std::atoi(argv[1]) ? 0 : 1;
}
