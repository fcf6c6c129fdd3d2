# Thin wrapper over CMake presets. `make test` is what CI runs (through .ci/run).
SHELL := /bin/bash
JOBS ?= 2
SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
PACKAGES := g++ make cmake libgtest-dev libgmock-dev libboost-dev \
            libcli11-dev libexpat1-dev nlohmann-json3-dev libsqlite3-dev
# The report outputs' checks: both Prometheus parsers and headless Chromium.
PACKAGES += python3-prometheus-client chromium
# The Debian package and its checks: CPack with dpkg-shlibdeps, lintian, manual pages, unit verification.
PACKAGES += dpkg-dev file lintian man-db groff-base systemd bash-completion
FUZZ_PACKAGES := clang libclang-rt-14-dev
FUZZ_SECONDS ?= 60
FUZZ_CI_SECONDS ?= 5

DEMO_MESSAGES ?= 3000
DEMO_STORE := build/demo-store

.PHONY: deps deps-fuzz build demo install package test test-default test-asan test-tsan test-fuzz fuzz fuzz-build clean

# Installs only what is missing; the package index is refreshed only when something must be installed.
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' "$$p" 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:$$missing"; \
	  $(SUDO) apt-get update && DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y --no-install-recommends $$missing; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

deps-fuzz:
	$(call install_missing,$(FUZZ_PACKAGES))

build: deps
	cmake --preset default
	cmake --build --preset default -j$(JOBS)

# Builds only the programs it runs, generates the bundled sample store once (deterministic: same
# messages and seed, same bytes) and scans it the way the mail server does, ending with the summary.
demo: deps
	cmake --preset default
	cmake --build --preset default -j$(JOBS) --target vstat vstatserver mkstore
	@if [ ! -d $(DEMO_STORE)/mail ]; then \
	  build/default/bin/mkstore --messages $(DEMO_MESSAGES) --seed 1 --force $(DEMO_STORE); \
	fi
	build/default/bin/vstat scan $(DEMO_STORE)

# Installs under PREFIX (below DESTDIR when given) from the package build: Debian's build flags, no tests.
PREFIX ?= /usr/local
install: deps
	cmake --preset package -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build --preset package -j$(JOBS)
	DESTDIR=$(DESTDIR) cmake --install build/package

# vstat_<version>_amd64.deb in the top directory, for `apt-get install ./vstat_*.deb`.
package: deps
	cmake --preset package -DCMAKE_INSTALL_PREFIX=/usr
	cmake --build --preset package -j$(JOBS) --target package
	cp build/package/package/vstat_*_amd64.deb .

test: test-default test-asan test-tsan test-fuzz

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

# libFuzzer targets: `make fuzz` runs each for FUZZ_SECONDS on a copy of its seed corpus; `make test`
# runs each briefly so that a regression on the seeds shows in CI.
fuzz-build: deps deps-fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz -j$(JOBS)

fuzz: fuzz-build
	fuzz/run.sh build/fuzz/fuzz-bin $(FUZZ_SECONDS)

test-fuzz: fuzz-build
	fuzz/run.sh build/fuzz/fuzz-bin $(FUZZ_CI_SECONDS)

clean:
	rm -rf build vstat_*.deb
