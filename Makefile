# SPDX-License-Identifier: MIT
# Thin front end over CMake presets. PRESET selects default, asan or tsan.
PRESET  ?= default
BUILD   := build/$(PRESET)
JOBS    ?= $(shell nproc 2>/dev/null || echo 2)
WERROR  ?= OFF
PREFIX  ?= /usr/local

.PHONY: all deps configure build test demo bench install package docs fuzz memcheck clean console

all: build

deps:
	scripts/install-deps

configure:
	cmake --preset $(PRESET) -DVASK_WERROR=$(WERROR) -DCMAKE_INSTALL_PREFIX=$(PREFIX)

build: configure
	cmake --build --preset $(PRESET) -j $(JOBS)

test: deps
	$(MAKE) --no-print-directory build
	ctest --preset $(PRESET) -j $(JOBS)

demo: deps
	$(MAKE) --no-print-directory build
	scripts/demo $(BUILD)

bench: deps
	$(MAKE) --no-print-directory build
	scripts/bench $(BUILD)

# PREFIX is configured into the build; DESTDIR (a staging root) is read by cmake --install from the
# environment.
install: build
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD)

# The Debian packages of debian/, built by dpkg-buildpackage out of the source tree and checked by
# lintian; the .deb files land in build/packages.
package: deps
	JOBS=$(JOBS) scripts/package build/packages

# The API reference from the public headers, into build/docs (needs doxygen).
docs:
	scripts/docs build/docs

# Each fuzz target for FUZZ_SECONDS (default 60) in a clang build of its own, build/fuzz.
FUZZ_SECONDS ?= 60
fuzz: deps
	scripts/fuzz build/fuzz $(FUZZ_SECONDS)

# The test suite under valgrind memcheck; MEMCHECK_TESTS narrows it with a ctest -R regex.
MEMCHECK_TESTS ?=
memcheck: deps
	$(MAKE) --no-print-directory build
	scripts/memcheck $(BUILD) '$(MEMCHECK_TESTS)'

clean:
	rm -rf build

# A broker, the simulator and vask-console on 127.0.0.1:$(CONSOLE_PORT) (8080); prints its URL, runs until Ctrl-C.
CONSOLE_PORT ?= 8080
console: deps
	$(MAKE) --no-print-directory build
	CONSOLE_PORT=$(CONSOLE_PORT) tools/console/run-demo $(BUILD)
