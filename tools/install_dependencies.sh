#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs the Debian packages that a purpose needs and that are missing: library (alone, without tests), build, demo,
# bench or check. As another user than root it says which are missing, and ends with an error.
set -euo pipefail

packages=(cmake ninja-build g++ make)
case "${1:-build}" in
    library) ;;
    build) packages+=(pkg-config libgtest-dev) ;;
    demo) packages+=(pkg-config libpng-dev gfortran) ;;
    bench) packages+=(libbenchmark-dev libcli11-dev gnuplot-nox libopenblas64-0-serial libblis64-4-serial) ;;
    check) packages+=(pkg-config libgtest-dev libpng-dev gfortran clang clang-format-14 clang-tidy-14 libclang-rt-14-dev
                      binutils qemu-user libbenchmark-dev libcli11-dev) ;;
    *) echo "usage: $0 library|build|demo|bench|check" >&2; exit 2 ;;
esac

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ "${#missing[@]}" -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
    echo "Missing Debian packages: ${missing[*]}" >&2
    echo "Install them with: sudo apt-get install ${missing[*]}" >&2
    exit 1
fi
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq "${missing[@]}" >/dev/null
