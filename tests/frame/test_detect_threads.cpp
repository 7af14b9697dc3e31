// SPDX-License-Identifier: BSD-3-Clause
// First uses by many threads at once: all get the one answer. Under the thread sanitizer this is the test of the locks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "frame/service/dispatch.h"
#include "frame/tesh_serv.h"
#include "tests/support/vcpu/in_process.h"

using tesh_test::on_processor;

namespace
{
// Starts all threads at once; body gets the thread's number.
void all_at_once(int threads, const std::function<void(int)> &body)
{
    std::atomic<int> waiting{threads};
    std::vector<std::thread> pool;
    for (int i = 0; i < threads; ++i) {
        pool.emplace_back([&, i] {
            --waiting;
            while (waiting.load() > 0)
                std::this_thread::yield();
            body(i);
        });
    }
    for (std::thread &thread : pool)
        thread.join();
}

using member_fn = int();
member_fn *address = nullptr;
int def_member()
{
    return 0;
}
int avx512_member()
{
    return 4;
}
constexpr member_fn *members[dispatch_path_count] = {def_member, def_member, def_member, def_member, avx512_member};
} // namespace

TEST(first_use, one_detection_for_all_threads)
{
    for (int repetition = 0; repetition < 20; ++repetition) {
        on_processor("avx512_e5", {}, [] {
            all_at_once(8, [](int i) {
                if (i % 2 == 0) {
                    EXPECT_EQ(tesh_serv_cpu_detect(), 7);
                }
                EXPECT_EQ(tesh_serv_vml_cpu_detect(), 9);
                EXPECT_EQ(tesh_serv_get_cpu_type(0), 7);
                EXPECT_EQ((dispatch<address, members>()), 4);
                EXPECT_EQ(tesh_serv_cbwr_get(1), 1);
            });
        });
    }
}

TEST(first_use, every_service_from_every_side)
{
    for (int repetition = 0; repetition < 10; ++repetition) {
        on_processor("avx512_e5", {{"TESH_ENABLE_INSTRUCTIONS", "AVX512_E4"}, {"TESH_CBWR", "AVX512,STRICT"}}, [] {
            using question = int32_t (*)();
            static const question questions[] = {tesh_serv_cpu_detect,
                                                 [] { return tesh_serv_get_cpu_type(1) - 7; },    // fine 14
                                                 [] { return tesh_serv_cbwr_get(-1) - 0x10005; }, // 12, strict
                                                 [] { return tesh_serv_cpuhasamx(nullptr) + 6; },
                                                 [] { return TESH_Orvan_CPU_Internal() + 6; },
                                                 [] { return tesh_serv_cpuishazel() + 6; },
                                                 [] { return tesh_serv_is_avx512_enabled() + 6; },
                                                 [] { return tesh_serv_cbwr_get_auto_branch() - 7; }};
            all_at_once(8, [](int i) {
                for (int step = 0; step < 8; ++step)
                    EXPECT_EQ(questions[(i + step) % 8](), 7) << (i + step) % 8;
            });
        });
    }
}

TEST(first_use, one_setting_wins)
{
    for (int repetition = 0; repetition < 20; ++repetition) {
        on_processor("avx512_e5", {}, [] {
            all_at_once(8, [](int i) {
                const int32_t answer = tesh_serv_cbwr_set(i % 2 == 0 ? 8 : 10);
                EXPECT_TRUE(answer == 0 || answer == -8) << answer;
                const int32_t type = tesh_serv_cpu_detect();
                EXPECT_TRUE(type == 3 || type == 5) << type;
                EXPECT_EQ(tesh_serv_cbwr_get(1), type == 3 ? 8 : 10);
            });
        });
    }
}

TEST(first_use, a_setting_that_waits_for_detection_comes_too_late)
{
    on_processor("avx512_e5", {}, [] {
        EXPECT_EQ(tesh_serv_cbwr_get(1), 1);
        tesh_serv_lock(&TESH_Detect_Cpu_Global_Lock);
        int32_t answers[2] = {0, 0};
        std::thread equal([&] { answers[0] = tesh_serv_cbwr_set(1); }),
            other([&] { answers[1] = tesh_serv_cbwr_set(8); });
        usleep(100000); // both have found no processor type, and wait
        EXPECT_EQ(__tesh_cpu_detect_and_load_dll(), 0);
        tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
        equal.join();
        other.join();
        EXPECT_EQ(answers[0], -8);
        EXPECT_EQ(answers[1], -8);
        EXPECT_EQ(tesh_serv_cbwr_get(1), 1);
    });
}

TEST(first_use, limits_are_set_whole)
{
    for (int repetition = 0; repetition < 20; ++repetition) {
        on_processor("avx512_e5", {}, [] {
            all_at_once(6, [](int i) {
                if (i == 0) {
                    EXPECT_EQ(tesh_serv_enable_instructions(2), 1);
                }
                const int32_t fine = tesh_serv_get_cpu_type(1);
                EXPECT_TRUE(fine == 5 || fine == 16 || fine == 15) << fine;
            });
        });
    }
}

TEST(first_use, a_forks_child_finds_the_locks_free)
{
    on_processor("avx512_e5", {}, [] {
        tesh_serv_lock(&TESH_Detect_Cpu_Global_Lock); // as if another thread were detecting
        const auto child = tesh_test::run_forked([] { return tesh_serv_cpu_detect() == 7 ? 0 : 1; });
        EXPECT_EQ(child.exit_code, 0);
        tesh_serv_unlock(&TESH_Detect_Cpu_Global_Lock);
        EXPECT_EQ(tesh_serv_cpu_detect(), 7);
    });
}
