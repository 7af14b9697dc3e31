// SPDX-License-Identifier: BSD-3-Clause
// What the gate to the environment knows beside a variable's text.
#pragma once

// True also for an empty value, which tesh_serv_getenv cannot tell from none.
bool getenv_is_set(const char *name);
