// SPDX-License-Identifier: BSD-3-Clause
// The memory manager behind the shared library: a program's own allocators, every request refused in turn under a
// product, and forks while other threads are inside products.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "frame/tesh.h"
#include "tests/support/failing_memory.h"

namespace
{
namespace failing_memory = tesh_test::failing_memory;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitizer_has_locks_of_its_own = true;
#else
constexpr bool sanitizer_has_locks_of_its_own = false;
#endif

// Small integers: every order of the sums gives the same bits.
struct product {
    int64_t n;
    std::vector<float> a, b, expected;

    explicit product(int64_t order) : n(order), a(size()), b(size()), expected(size())
    {
        for (size_t i = 0; i < size(); ++i) {
            a[i] = float(i % 5) - 2.0f;
            b[i] = float(i % 7) - 3.0f;
        }
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t l = 0; l < n; ++l) {
                for (int64_t i = 0; i < n; ++i)
                    expected[size_t(i + j * n)] += 2.0f * a[size_t(i + l * n)] * b[size_t(l + j * n)];
            }
        }
    }
    size_t size() const { return size_t(n) * size_t(n); }
    bool is_right() const
    {
        std::vector<float> c(size(), 9.0f);
        cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 2.0f, a.data(), n, b.data(), n, 0.0f, c.data(),
                    n);
        return c == expected;
    }
};

bool call_everything(const product &small, const product &large)
{
    bool good = small.is_right() && large.is_right();
    const int64_t count = 3, one = 1;
    const float alpha = 2.0f, beta = 3.0f, x[3] = {1, 2, 3};
    float y[3] = {1, 1, 1};
    saxpby_(&count, &alpha, x, &one, &beta, y, &one);
    good = good && y[0] == 5.0f && y[1] == 7.0f && y[2] == 9.0f;
    float rows[6] = {1, 2, 3, 4, 5, 6}, columns[6];
    TESH_Somatcopy('R', 'T', 2, 3, 2.0f, rows, 3, columns, 2);
    TESH_Simatcopy('R', 'T', 2, 3, 2.0f, rows, 3, 2);
    good = good && std::memcmp(rows, columns, sizeof rows) == 0 && columns[1] == 8.0f && lsame("n", "N", 1, 1) != 0;
    tesh_serv_deallocate(tesh_serv_allocate(5000, 64));
    tesh_serv_free(tesh_serv_realloc(tesh_serv_malloc(100, 64), 5000));
    tesh_serv_cbwr_get(-1);
    tesh_serv_get_cache_size(0);
    tesh_serv_verbose_mode();
    tesh_serv_get_ncpus();
    TESH_Free_Buffers();
    int32_t blocks;
    return good && tesh_serv_mem_stat(&blocks) >= 0 && TESH_Get_Max_Threads() == 1;
}

TEST(raw_allocators, are_the_program_s_own_in_the_shared_library_too)
{
    failing_memory::install();
    failing_memory::refuse(0);
    tesh_serv_deallocate(tesh_serv_allocate(1000, 64));
    EXPECT_GT(failing_memory::requests(), 0);
    TESH_Free_Buffers();
    EXPECT_EQ(failing_memory::blocks_out(), 0);
}

TEST(refused_requests, leave_every_product_right)
{
    failing_memory::install();
    for (const int64_t order : {5, 33, 150, 400}) {
        const product p(order);
        for (const failing_memory::refusal how :
             {failing_memory::refusal::once, failing_memory::refusal::from_there_on}) {
            for (int64_t request = 1;; ++request) {
                failing_memory::refuse(0);
                TESH_Free_Buffers();
                failing_memory::refuse(request, how);
                ASSERT_TRUE(p.is_right()) << "order " << order << " request " << request;
                if (!failing_memory::refused())
                    break;
            }
        }
        failing_memory::refuse(0);
        TESH_Free_Buffers();
        EXPECT_EQ(failing_memory::blocks_out(), 0);
    }
}

TEST(fork, child_of_a_process_with_threads_inside_the_library_calls_everything)
{
    if (sanitizer_has_locks_of_its_own)
        GTEST_SKIP() << "the sanitizer's own locks stay held in the child of a threaded process";
    constexpr unsigned child_limit_s = 30; // a child that waits for a vanished thread is ended by SIGALRM
    const product small(9), large(120);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < 4; ++t) {
        pool.emplace_back([&] {
            while (!stop)
                wrong += !call_everything(small, large);
        });
    }
    for (int i = 0; i < 60; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(child_limit_s);
            _exit(call_everything(small, large) ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << "child " << i;
    }
    stop = true;
    for (std::thread &t : pool)
        t.join();
    EXPECT_EQ(wrong, 0);
}
} // namespace
