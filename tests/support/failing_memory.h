// SPDX-License-Identifier: BSD-3-Clause
// A raw allocator under the library that refuses a chosen request. A driver is tested with n from 1 until a call no
// longer meets the refusal:
//
//   failing_memory::install();                      // before the library's first allocation in this process
//   for (int64_t n = 1;; ++n) {
//       tesh_serv_free_buffers();                   // cached blocks would spare the call its requests
//       failing_memory::refuse(n);
//       ... the call, whose result must be right ...
//       if (!failing_memory::refused())
//           break;
//   }
#pragma once
#include <cstdint>

namespace tesh_test::failing_memory
{
// Stores the allocator in i_malloc and its siblings. May be called again; ends the program if the library has chosen
// its allocators before.
void install();

enum class refusal { once, from_there_on };

// The n-th request from now on is refused, 1 being the next; 0: none. Starts the counts below anew.
void refuse(std::int64_t n, refusal how = refusal::once);
// The n-th request or give-back from now on, counted together, calls action before it is served; 0: none.
void interrupt(std::int64_t n, void (*action)() = nullptr);
bool interrupted(); // whether it has come to that

bool refused();          // whether a request was refused since
std::int64_t requests(); // [count] requests since, refused ones included

std::int64_t blocks_out(); // [count] blocks of this allocator that are not freed
} // namespace tesh_test::failing_memory
