/* SPDX-License-Identifier: BSD-3-Clause */
/* Scaled transposition and copy of matrices. */
#ifndef TESH_TRANS_H
#define TESH_TRANS_H
#include "tesh_types.h"
#endif
