# SPDX-License-Identifier: BSD-3-Clause
# make test | demo | bench | install | format | check | clean. Installs what is missing on Debian, then calls CMake.
JOBS ?= $(shell nproc)
PREFIX ?= $(CURDIR)/install

.PHONY: all test demo bench install format check clean

all:
	@tools/install_dependencies.sh build
	cmake --preset release
	cmake --build build/release -j $(JOBS)

test: all
	ctest --test-dir build/release --output-on-failure -j $(JOBS)

demo:
	@tools/install_dependencies.sh demo
	@tools/run_demo.sh

bench:
	@tools/install_dependencies.sh bench
	cmake --preset bench
	cmake --build build/bench -j $(JOBS)

install:
	@tools/install_dependencies.sh library
	cmake --preset library
	cmake --build build/library -j $(JOBS)
	cmake --install build/library --prefix $(PREFIX)

check: all
	tools/check_all.sh build/release

format:
	tools/check_format.sh --fix

clean:
	rm -rf build install
