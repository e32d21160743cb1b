# Thin front end over CMake presets. PRESET selects default, asan or tsan.
PRESET  ?= default
BUILD   := build/$(PRESET)
JOBS    ?= $(shell nproc 2>/dev/null || echo 2)
WERROR  ?= OFF
PREFIX  ?= /usr/local

.PHONY: all deps configure build test demo bench install clean

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

clean:
	rm -rf build
