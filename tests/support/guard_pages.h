// SPDX-License-Identifier: BSD-3-Clause
// Arrays that end or begin at a page that faults when touched: an access outside an operand ends the test. Under the
// address sanitizer so does one to a byte of the same page.
#pragma once
#include <cstddef>
#include <cstdint>

namespace tesh_test
{
// Under the address sanitizer an access to the bytes ends the test until they are shown again, but for masked accesses,
// which it does not see. In other builds nothing is hidden.
void hide_bytes(const void *begin, std::size_t bytes);
void show_bytes(const void *begin, std::size_t bytes);

enum class guard { at_end, at_start };

// count elements; at_end: the last byte lies right before a guard page; at_start: the first right behind one.
// shift_bytes moves the array away from the guard, to reach other alignments. Memory is zero at first.
class guarded_bytes
{
public:
    guarded_bytes(std::size_t bytes, guard side, std::size_t shift_bytes = 0);
    ~guarded_bytes();
    guarded_bytes(const guarded_bytes &) = delete;
    guarded_bytes &operator=(const guarded_bytes &) = delete;
    void *data() const { return data_; }

private:
    std::uint8_t *map_;
    std::size_t map_bytes_;
    std::uint8_t *data_;
};

template <class T> class guarded_array
{
public:
    explicit guarded_array(std::size_t count, guard side = guard::at_end, std::size_t shift_bytes = 0)
        : bytes_(count * sizeof(T), side, shift_bytes), count_(count)
    {
    }
    T *data() const { return static_cast<T *>(bytes_.data()); }
    T &operator[](std::size_t i) const { return data()[i]; }
    std::size_t size() const { return count_; }
    T *begin() const { return data(); }
    T *end() const { return data() + count_; }

private:
    guarded_bytes bytes_;
    std::size_t count_;
};
} // namespace tesh_test
