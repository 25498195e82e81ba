# The two commands of a newcomer are `make demo` and `make test`; each installs what it needs. `make help` lists all.
SHELL := /bin/bash
JOBS ?= $(shell nproc)
PREFIX ?= /opt/corvane
INSTALL_FROM ?= build/release
.DEFAULT_GOAL := help
.PHONY: help demo test build lint format unit asan tsan clang coverage fuzz bench bench-smoke vm-test install package deps clean

help: ## list the targets
	@awk -F ':.*## ' '/^[a-z-]+:.*## /{printf "  make %-12s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

demo: ## build, then watch disks come online, one leave and return, three get verdicts (needs root or sudo)
	@tools/deps.sh build demo
	@tools/build.sh release corvaned corvanectl corvane-agentd corvane-sim
	@programs/demo/demo.sh build/release

test: ## everything: lint, unit and integration tests, sanitizers, virtual machine, benchmark smoke run
	@tools/test.sh

build: ## configure and build the release preset
	@tools/deps.sh build
	@tools/build.sh release

lint: ## formatting, spelling, shell scripts, man pages, headers alone, static analysis
	@tools/deps.sh build lint
	@tools/lint.sh

format: ## reformat all C and C++ sources
	@tools/deps.sh lint
	@git ls-files -z --cached --others --exclude-standard '*.cpp' '*.h' '*.c' | xargs -0 clang-format -i

unit: ## unit and integration tests, release build
	@tools/deps.sh build
	@tools/build.sh release
	@ctest --preset release -j$(JOBS)

asan: ## the same under address and undefined-behaviour sanitizers
	@tools/deps.sh build
	@tools/build.sh asan
	@ctest --preset asan -j$(JOBS)

tsan: ## the threaded ones under the thread sanitizer
	@tools/deps.sh build
	@tools/build.sh tsan threaded_tests
	@ctest --preset tsan -j$(JOBS) -L threaded

clang: ## build with clang 14, warnings and lock checking as errors
	@tools/deps.sh build lint
	@tools/build.sh clang

coverage: ## line coverage of src/ and platform/ as text and HTML in build/coverage/report
	@tools/deps.sh build lint
	@tools/coverage.sh

fuzz: ## run every fuzz target for FUZZ_SECONDS (default 60) on its corpus
	@tools/deps.sh build lint
	@tools/fuzz.sh $${FUZZ_SECONDS:-60}

bench: ## benchmarks, and the cost of the whole process over two minutes
	@tools/deps.sh build
	@tools/build.sh bench
	@tools/bench.sh full

bench-smoke: ## every benchmark once, briefly
	@tools/deps.sh build
	@tools/build.sh bench
	@tools/bench.sh smoke

vm-test: ## tests in a virtual machine with a real kernel and emulated disks
	@tools/deps.sh build vm package
	@tools/build.sh release corvaned corvane-agentd corvane-sim
	@tests/vm/run.sh

install: build ## install the release build below PREFIX (/opt/corvane), or below DESTDIR for a packager
	@cmake -S . -B '$(INSTALL_FROM)' -DCMAKE_INSTALL_PREFIX='$(PREFIX)' >/dev/null
	@DESTDIR='$(DESTDIR)' cmake --install '$(INSTALL_FROM)'

package: ## Debian packages in build/package
	@tools/deps.sh build package
	@tools/package.sh

deps: ## install every Debian package that the targets use
	@tools/deps.sh build demo lint vm package

clean: ## remove build/
	@rm -rf build
