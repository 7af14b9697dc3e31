// SPDX-License-Identifier: BSD-3-Clause
// The same program linked with the archive.
#include "tests/frame/child_abi_own_handler.cpp"
