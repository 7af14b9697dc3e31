// SPDX-License-Identifier: BSD-3-Clause
// The generator and the seed of the run.
#include "tests/support/random.h"

#include <cstdio>
#include <cstdlib>

std::uint64_t tesh_test::seed()
{
    static const std::uint64_t value = [] {
        const char *text = std::getenv("TESH_TEST_SEED");
        const std::uint64_t v = text != nullptr ? std::strtoull(text, nullptr, 0) : 20260101u;
        std::printf("seed %llu (TESH_TEST_SEED sets it)\n", static_cast<unsigned long long>(v));
        return v;
    }();
    return value;
}

std::uint64_t tesh_test::random::next()
{
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15u);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

float tesh_test::random::uniform()
{
    return static_cast<float>(static_cast<std::int64_t>(next() >> 40) - (1 << 23)) / static_cast<float>(1 << 23);
}
