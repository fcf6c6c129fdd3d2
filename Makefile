# Thin wrapper over CMake presets. `make test` is what CI runs (through .ci/run).
SHELL := /bin/bash
JOBS ?= 2
SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
PACKAGES := g++ make cmake libgtest-dev libgmock-dev libboost-dev

DEMO_MESSAGES ?= 3000
DEMO_STORE := build/demo-store

.PHONY: deps build demo test test-default test-asan test-tsan clean

# Installs only what is missing; the package index is refreshed only when something must be installed.
deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' "$$p" 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:$$missing"; \
	  $(SUDO) apt-get update && DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y --no-install-recommends $$missing; \
	fi

build: deps
	cmake --preset default
	cmake --build --preset default -j$(JOBS)

# Generates the bundled sample store once (deterministic: same messages and seed, same bytes) and
# scans it the way the mail server does, ending with the summary of the report.
demo: build
	@if [ ! -d $(DEMO_STORE)/mail ]; then \
	  build/default/bin/mkstore --messages $(DEMO_MESSAGES) --seed 1 --force $(DEMO_STORE); \
	fi
	build/default/bin/vstat scan $(DEMO_STORE)

test: test-default test-asan test-tsan

test-default: build
	ctest --preset default

test-asan: deps
	cmake --preset asan
	cmake --build --preset asan -j$(JOBS)
	ctest --preset asan

# Only the layers with threads run under ThreadSanitizer (tests labelled "tsan").
test-tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan -j$(JOBS)
	ctest --preset tsan

clean:
	rm -rf build
