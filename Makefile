# Everyday commands. Each installs missing packages, says what it does, and asks no questions.

.PHONY: help run test bench install package format tidy coverage clean
.DEFAULT_GOAL := help
.NOTPARALLEL:

example := examples/web-tier.yaml
PREFIX ?= /usr/local
folders := OruPostcardTelemetry platform postcard tests bench

help:
	@echo 'make run       build (optimised) and compile the example policy, $(example)'
	@echo 'make test      build with every warning an error, and run all tests'
	@echo 'make bench     build the benchmarks (optimised) and run them'
	@echo 'make install   build (optimised) and install under PREFIX=$(PREFIX), below DESTDIR if given'
	@echo 'make package   build the Debian packages'
	@echo 'make format    lay out the sources with clang-format'
	@echo 'make tidy      run clang-tidy over the sources'
	@echo 'make coverage  run the tests and report the lines and branches they reach'
	@echo 'make clean     remove everything that was built'

run:
	@scripts/install-dependencies run
	@scripts/build --target postcard release
	@echo '==> postcard compile $(example)'
	@build/release/bin/postcard compile $(example)

test:
	@scripts/install-dependencies test
	@scripts/build dev
	@echo '==> testing (dev)'
	@ctest --preset dev

bench:
	@scripts/install-dependencies bench
	@scripts/build release -DPOSTCARD_BUILD_BENCH=ON
	@echo '==> benchmarking (release)'
	@if [ -x bench/run ]; then bench/run build/release; \
	else for program in build/release/bin/bench-*; do "$$program" || exit; done; fi

install:
	@scripts/install-dependencies run
	@scripts/build release
	@echo '==> installing under $(DESTDIR)$(PREFIX)'
	@DESTDIR='$(DESTDIR)' cmake --install build/release --prefix '$(PREFIX)' >build/install.log

package:
	@scripts/install-dependencies package
	@scripts/make-packages

format:
	@scripts/install-dependencies ci
	@echo '==> formatting'
	@find $(wildcard $(folders)) -name '*.h' -o -name '*.cpp' | xargs -r clang-format-16 -i

tidy:
	@scripts/install-dependencies ci
	@scripts/check-tidy

coverage:
	@scripts/install-dependencies ci
	@scripts/check-coverage

clean:
	@echo '==> removing build/'
	@rm -rf build
