// SPDX-License-Identifier: BSD-3-Clause
// x with all of its lanes, for clang, too. Where only some are stored it fills the others with what it likes, or puts
// off what a mask leaves out, and an infinity raises flags there.
#pragma once

namespace
{
template <class reg> inline reg as_written(reg x)
{
#ifdef __clang__
    __asm__("" : "+v"(x));
#endif
    return x;
}
} // namespace
