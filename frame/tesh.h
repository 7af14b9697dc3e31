/* SPDX-License-Identifier: BSD-3-Clause */
/* The whole public interface of libtesh. Plain C99 or C++11; link with -ltesh. */
#ifndef TESH_H
#define TESH_H
#include "tesh_blas.h"
#include "tesh_lapack.h"
#include "tesh_serv.h"
#include "tesh_trans.h"
#include "tesh_types.h"
#endif
