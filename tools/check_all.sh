#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# check_all.sh BUILD_DIR: every structure check on a release build.
set -euo pipefail
build=$(realpath "${1:?usage: check_all.sh BUILD_DIR}")
cd "$(dirname "$0")"
./check_format.sh
./check_limits.sh
./check_includes.sh
./check_objects.sh "$build"
./check_exports.sh "$build"
./check_dispatch.sh "$build"
