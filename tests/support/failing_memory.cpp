// SPDX-License-Identifier: BSD-3-Clause
// The allocator that refuses: malloc of the C library behind a count.
#include "tests/support/failing_memory.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "frame/tesh_serv.h"

namespace
{
std::atomic<std::int64_t> request_count{0}, refuse_from{INT64_MAX}, refuse_to{INT64_MAX}, refusals{0}, out{0};

std::atomic<std::int64_t> calls_to_action{0};
void (*pending_action)();

void maybe_act()
{
    if (calls_to_action > 0 && --calls_to_action == 0)
        pending_action();
}

bool granted()
{
    maybe_act();
    const std::int64_t request = ++request_count;
    if (request < refuse_from || request > refuse_to)
        return true;
    ++refusals;
    return false;
}

void *take(std::size_t size)
{
    void *const block = granted() ? std::malloc(size) : nullptr;
    out += block != nullptr;
    return block;
}

void *take_zeroed(std::size_t count, std::size_t size)
{
    void *const block = granted() ? std::calloc(count, size) : nullptr;
    out += block != nullptr;
    return block;
}

void *take_again(void *old, std::size_t size)
{
    void *const block = granted() ? std::realloc(old, size) : nullptr;
    out += old == nullptr && block != nullptr;
    return block;
}

void give_back(void *block)
{
    maybe_act();
    out -= block != nullptr;
    std::free(block);
}
} // namespace

namespace tesh_test
{
void failing_memory::install()
{
    i_malloc = take;
    i_calloc = take_zeroed;
    i_realloc = take_again;
    i_free = give_back;
    const std::int64_t before = request_count;
    tesh_serv_free(tesh_serv_malloc(1, 64));
    if (request_count == before) {
        std::fputs("failing_memory: installed after the library's first allocation\n", stderr);
        std::abort();
    }
}

void failing_memory::refuse(std::int64_t n, refusal how)
{
    refuse_from = n > 0 ? n : INT64_MAX;
    refuse_to = how == refusal::once ? refuse_from.load() : INT64_MAX;
    refusals = 0;
    request_count = 0;
}

void failing_memory::interrupt(std::int64_t n, void (*action)())
{
    pending_action = action;
    calls_to_action = n;
}

bool failing_memory::interrupted()
{
    return pending_action != nullptr && calls_to_action == 0;
}

bool failing_memory::refused()
{
    return refusals > 0;
}

std::int64_t failing_memory::requests()
{
    return request_count;
}

std::int64_t failing_memory::blocks_out()
{
    return out;
}
} // namespace tesh_test
