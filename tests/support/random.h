// SPDX-License-Identifier: BSD-3-Clause
// Random operands with a printed seed (TESH_TEST_SEED sets it).
#pragma once
#include <cstdint>

namespace tesh_test
{
// The seed of this run: TESH_TEST_SEED, or a fixed one. Printed once.
std::uint64_t seed();

class random
{
public:
    explicit random(std::uint64_t stream = 0) : state_(seed() + stream * 0x9e3779b97f4a7c15u) {}
    std::uint64_t next(); // splitmix64 (Steele, Lea, Flood 2014)
    float uniform();      // in [-1, 1)
    float small_integer() { return static_cast<float>(static_cast<std::int64_t>(next() % 9) - 4); } // -4 .. 4
    std::int64_t below(std::int64_t bound)
    {
        return static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(bound));
    }
    template <class Range> void fill(Range &range)
    {
        for (auto &x : range)
            x = uniform();
    }
    template <class Range> void fill_integers(Range &range)
    {
        for (auto &x : range)
            x = small_integer();
    }

private:
    std::uint64_t state_;
};
} // namespace tesh_test
