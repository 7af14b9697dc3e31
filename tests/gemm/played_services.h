// SPDX-License-Identifier: BSD-3-Clause
// The services under the portable forms, played by the test: this program's definitions stand in for the library's, so
// that a test says which processor there is, sees every request for scratch, refuses the ones it likes, and finds any
// access outside the block that was asked for.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "frame/tesh_serv.h"
#include "tests/support/guard_pages.h"

namespace played
{
inline std::int32_t cpu_type = 0;
inline bool barcelona = false, bulldozer = false, zen = false;

inline bool refuse = false; // every request for scratch
struct request {
    std::size_t bytes;
    std::int32_t alignment;
};
inline std::vector<request> requests;
inline std::vector<std::string> warned; // names given to the pointer test, for null pointers

// A block lies right before a guard page, as near as its alignment allows.
inline std::map<void *, std::unique_ptr<tesh_test::guarded_bytes>> blocks;

inline void reset()
{
    cpu_type = 0;
    barcelona = bulldozer = zen = refuse = false;
    requests.clear();
    warned.clear();
}
} // namespace played

extern "C" {
int32_t tesh_serv_cpu_detect(void)
{
    return played::cpu_type;
}
int32_t tesh_serv_cpuisitbarcelona(void)
{
    return played::barcelona;
}
int32_t tesh_serv_cpuisbulldozer(void)
{
    return played::bulldozer;
}
int32_t tesh_serv_cpuiszen(void)
{
    return played::zen;
}
void *tesh_serv_allocate(size_t size, int32_t alignment)
{
    played::requests.push_back({size, alignment});
    if (played::refuse)
        return nullptr;
    const std::size_t step = static_cast<std::size_t>(alignment);
    auto block = std::make_unique<tesh_test::guarded_bytes>((size + step - 1) / step * step, tesh_test::guard::at_end);
    void *data = block->data();
    played::blocks[data] = std::move(block);
    return data;
}
void tesh_serv_deallocate(void *pointer)
{
    EXPECT_EQ(played::blocks.erase(pointer), 1u) << "a block that is not out was given back";
}
int32_t tesh_serv_check_ptr_and_warn(const void *pointer, const char *name)
{
    if (pointer == nullptr)
        played::warned.emplace_back(name);
    return pointer == nullptr;
}
}
