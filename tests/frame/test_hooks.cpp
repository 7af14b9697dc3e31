// SPDX-License-Identifier: BSD-3-Clause
// The exit hook, the progress callback and the destructor slots.
#include <gtest/gtest.h>

#include <string>

#include "frame/tesh_serv.h"
#include "tests/support/child.h"

namespace
{
using tesh_test::run_forked;

TEST(exit_hook, unset_ends_the_process_with_the_code)
{
    const auto result = run_forked([] {
        tesh_serv_exit(17);
        return 1;
    });
    EXPECT_EQ(result.exit_code, 17);
}

int32_t exit_code_seen = -1;

TEST(exit_hook, is_called_with_the_code_and_may_return)
{
    tesh_serv_set_exit_handler([](int32_t code) { exit_code_seen = code; });
    tesh_serv_exit(5);
    EXPECT_EQ(exit_code_seen, 5);
    tesh_serv_set_exit_handler(nullptr);
    EXPECT_EQ(run_forked([] {
                  tesh_serv_exit(6);
                  return 0;
              }).exit_code,
              6);
}

int32_t answer_7(const int64_t *thread, const int64_t *step, const char *stage, int64_t length)
{
    EXPECT_EQ(*thread, 1);
    EXPECT_EQ(*step, 2);
    EXPECT_EQ(std::string(stage, static_cast<size_t>(length)), "stage");
    return 7;
}

int32_t answer_8(const int64_t *, const int64_t *, const char *, int64_t)
{
    return 8;
}

int32_t ask()
{
    const int64_t thread = 1, step = 2;
    return tesh_serv_progress(&thread, &step, "stage", 5);
}

TEST(progress, answers_0_without_a_callback)
{
    tesh_serv_set_progress(nullptr);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(tesh_serv_default_progress(nullptr, nullptr, nullptr, 0), 0);
}

TEST(progress, passes_its_arguments_on_and_answers_for_the_callback)
{
    tesh_serv_set_progress(answer_7);
    EXPECT_EQ(ask(), 7);
    tesh_serv_set_progress(nullptr);
}

TEST(progress, setter_returns_the_former_callback_or_the_default)
{
    EXPECT_EQ(tesh_serv_set_progress(answer_7), tesh_serv_default_progress);
    EXPECT_EQ(tesh_serv_set_progress(answer_8), answer_7);
    EXPECT_EQ(tesh_serv_set_progress(nullptr), answer_8);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(tesh_serv_set_progress(nullptr), tesh_serv_default_progress);
}

TEST(progress, interface_setter_does_not_override)
{
    tesh_serv_set_progress_interface(answer_8);
    EXPECT_EQ(ask(), 8);
    tesh_serv_set_progress_interface(answer_7);
    EXPECT_EQ(ask(), 8);
    EXPECT_EQ(tesh_progress_address, answer_8);
    tesh_serv_set_progress(nullptr);
}

std::string order;

TEST(destructor_slots, hold_two_call_in_order_and_keep_them)
{
    const auto first = [] { order += '1'; };
    const auto second = [] { order += '2'; };
    tesh_serv_core_reset_sycl_destructors();
    EXPECT_EQ(tesh_serv_core_register_sycl_destructor(nullptr), 1);
    EXPECT_EQ(tesh_serv_core_register_sycl_destructor(first), 0);
    EXPECT_EQ(tesh_serv_core_register_sycl_destructor(second), 0);
    EXPECT_EQ(tesh_serv_core_register_sycl_destructor(first), 1);
    tesh_serv_call_sycl_destructors();
    EXPECT_EQ(order, "12");
    tesh_serv_call_sycl_destructors();
    EXPECT_EQ(order, "1212");
    tesh_serv_core_reset_sycl_destructors();
    tesh_serv_call_sycl_destructors();
    EXPECT_EQ(order, "1212");
    EXPECT_EQ(tesh_serv_core_register_sycl_destructor(second), 0);
    tesh_serv_core_reset_sycl_destructors();
}
} // namespace
