#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Builds, installs into install/ and runs the demo: a photograph through four matrix products and turned, then a C and a Fortran
# program built against the installed library through pkg-config.
set -euo pipefail
cd "$(dirname "$0")/.."
export TESH_TRUSTED_VENDORS="${TESH_TRUSTED_VENDORS-any}" # the widest path on processors of any maker

cmake --preset demo >/dev/null
cmake --build build/demo -j "$(nproc)" | tail -n 1
cmake --install build/demo --prefix "$PWD/install" >/dev/null
build/demo/demo/compress_photo demo/retina.png build/demo/retina_5_percent.png
build/demo/demo/turn_photo demo/retina.png build/demo/retina_turned.png

PKG_CONFIG_PATH=$(dirname "$(find "$PWD/install" -name tesh.pc)")
export PKG_CONFIG_PATH
LD_LIBRARY_PATH=$(pkg-config --variable=libdir tesh)
export LD_LIBRARY_PATH
# shellcheck disable=SC2046 # the flags are words of their own
cc -o build/demo/first_call_c demo/first_call.c $(pkg-config --cflags --libs tesh)
# shellcheck disable=SC2046
gfortran -o build/demo/first_call_f demo/first_call.f90 $(pkg-config --libs tesh)
build/demo/first_call_c
build/demo/first_call_f
