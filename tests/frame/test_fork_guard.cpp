// SPDX-License-Identifier: BSD-3-Clause
// Forks of a process whose other threads are inside the library: the child can call every service.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "frame/service/fork_guard.h"
#include "tests/frame/memory_view.h"
#include "tests/support/random.h"

namespace
{
using namespace memory_view;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitizer_has_locks_of_its_own = true;
#else
constexpr bool sanitizer_has_locks_of_its_own = false;
#endif

constexpr unsigned child_limit_s = 30; // a child that waits for a vanished thread is ended by SIGALRM

void nothing(void *) {}

void call_services(uint64_t stream)
{
    tesh_test::random random(stream);
    for (int i = 0; i < 6; ++i) {
        const auto size = static_cast<size_t>(1 + random.below(50000));
        void *const p = tesh_serv_allocate(size, 64);
        if (p != nullptr)
            std::memset(p, 1, size);
        tesh_serv_deallocate(p);
    }
    tesh_serv_free(tesh_serv_realloc(tesh_serv_malloc(100, 64), 20000));
    int32_t blocks;
    tesh_serv_mem_stat(&blocks);
    tesh_serv_peak_mem_usage(1);
    tesh_serv_peak_mem_usage(2);
    tesh_serv_thread_free_buffers();
    tesh_serv_free_buffers();
    tesh_serv_cpu_detect();
    tesh_serv_cbwr_get(1);
    tesh_serv_get_cache_size(1);
    tesh_serv_get_fast_mm_status();
    tesh_serv_get_ncpus();
    tesh_serv_verbose_mode();
    tesh_serv_check_ptr(&stream, "FORK");
}

// Forks; the child must end with 0. Answers its status.
int status_of_child(const std::function<int()> &body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(child_limit_s);
        _exit(body());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// Threads that call services until they are told to stop.
class noise
{
public:
    explicit noise(int threads)
    {
        for (int t = 0; t < threads; ++t) {
            pool_.emplace_back([this, t] {
                for (uint64_t round = 0; !stop_; ++round) {
                    call_services(uint64_t(t) * 1000 + round);
                    if (round % 8 == 7)
                        on_new_thread([&] { call_services(uint64_t(t) * 1000 + round); });
                }
            });
        }
    }
    ~noise()
    {
        stop_ = true;
        for (std::thread &t : pool_)
            t.join();
    }

private:
    std::atomic<bool> stop_{false};
    std::vector<std::thread> pool_;
};

// The fork falls into the first uses of other threads: settings, keys, detection, slot vectors. The first test, since
// this process itself must not have used the library yet.
TEST(fork_guard, child_of_a_fork_during_first_uses_calls_everything)
{
    if (sanitizer_has_locks_of_its_own)
        GTEST_SKIP() << "the sanitizer's own locks stay held in the child of a threaded process";
    tesh_test::seed(); // printed here: the test's own first use must not be in the middle of a fork
    for (uint64_t i = 0; i < 60; ++i) {
        const int status = status_of_child([&] {
            std::vector<std::thread> pool;
            std::atomic<int> started{0};
            for (uint64_t t = 0; t < 4; ++t) {
                pool.emplace_back([&, t] {
                    ++started;
                    call_services(t);
                });
            }
            while (started == 0)
                std::this_thread::yield();
            const int inner = status_of_child([&] {
                call_services(i);
                return 0;
            });
            for (std::thread &t : pool)
                t.join();
            return inner == 0 ? 0 : 1;
        });
        ASSERT_EQ(status, 0) << "round " << i;
    }
}

TEST(fork_guard, child_calls_everything_while_other_threads_were_inside)
{
    if (sanitizer_has_locks_of_its_own)
        GTEST_SKIP() << "the sanitizer's own locks stay held in the child of a threaded process";
    noise others(6);
    auto *const kept = static_cast<unsigned char *>(tesh_serv_allocate(9000, 64));
    std::memset(kept, 0x5a, 9000);
    for (uint64_t i = 0; i < 150; ++i) {
        const int status = status_of_child([&] {
            for (int b = 0; b < 9000; ++b) {
                if (kept[b] != 0x5a)
                    return 2;
            }
            tesh_serv_deallocate(kept);
            call_services(i);
            on_new_thread([&] { call_services(i); });
            tesh_serv_core_register_cleanup(nothing, nullptr);
            tesh_serv_finalize();
            return tesh_memory::mm_book.global == 0 ? 0 : 3;
        });
        ASSERT_EQ(status, 0) << "child " << i;
        ASSERT_EQ(kept[8999], 0x5a);
    }
    tesh_serv_deallocate(kept);
}

TEST(fork_guard, child_of_a_child_can_fork_again)
{
    if (sanitizer_has_locks_of_its_own)
        GTEST_SKIP() << "the sanitizer's own locks stay held in the child of a threaded process";
    noise others(3);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(status_of_child([] {
                      return status_of_child([] {
                                 call_services(1);
                                 return 0;
                             }) == 0
                                 ? 0
                                 : 1;
                  }),
                  0);
    }
}

TEST(fork_guard, frees_the_listed_locks_in_the_child_only)
{
    tesh_serv_deallocate(tesh_serv_allocate(100, 64));
    tesh_serv_lock(&tesh_memory::mm_tid.lock); // a lesser lock, as another thread would hold it
    const int status = status_of_child([] { return tesh_memory::mm_tid.lock == 0 ? 0 : 1; });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(tesh_memory::mm_tid.lock, 1);
    tesh_serv_unlock(&tesh_memory::mm_tid.lock);
    EXPECT_EQ(fork_guard_state, 1);
}
} // namespace
