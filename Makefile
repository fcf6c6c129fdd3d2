# Thin wrapper over CMake presets. `make test` is what CI runs (through .ci/run).
SHELL := /bin/bash
JOBS ?= 2
SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
PACKAGES := g++ make cmake libgtest-dev libgmock-dev libboost-dev

.PHONY: deps build test test-default test-asan test-tsan clean

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
