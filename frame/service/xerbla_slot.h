// SPDX-License-Identifier: BSD-3-Clause
// The slot of the error handler in force. The entry layer looks into it before it registers its own handler, so that a
// public call whose handler is registered already makes no call for it.
#pragma once
#include "frame/tesh_serv.h"

extern "C" {
[[gnu::visibility("hidden")]] extern tesh_serv_xerbla_fn tesh_xerbla_address; // null until a handler is set

// tesh_serv_default_xerbla, for calls: that name is bound by dynamic symbol, since its address is handed out.
void default_report(const char *name, const int64_t *code, int32_t length);
}
