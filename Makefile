# The two commands that matter are `make demo` and `make test`; both install what is missing first.

SHELL := /bin/bash
JOBS ?= $(shell nproc)
FILE ?= /usr/share/sounds/alsa/Front_Center.wav
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60
SOAK_SECONDS ?= 120
SOAK_KILLS ?= 2000
SOAK_RENAMES ?= 500
export JOBS

# A folder of real media for the tests; without it those tests make their own files only.
ifneq ($(wildcard ../shared/media/corpus.tsv),)
MEDIACORE_TEST_MEDIA ?= $(abspath ../shared/media)
export MEDIACORE_TEST_MEDIA
endif

SOURCE_FOLDERS := $(wildcard support services shared mediautil neighbours backends tools examples tests bench)
FORMATTED = $(shell find $(SOURCE_FOLDERS) -name '*.h' -o -name '*.cpp' -o -name mediaobj)

.PHONY: help build demo test bench asan tsan fuzz soak format lint install clean

help:
	@echo 'make build    the tool (build/release/bin/mediacore) and the libraries (build/release/lib)'
	@echo 'make demo     opens a real recording, describes it and reads it; FILE=… for your own'
	@echo 'make test     every test and check, and unit and stress tests under the sanitizers'
	@echo 'make asan     unit and stress tests under the address and undefined-behaviour sanitizers'
	@echo 'make tsan     unit and stress tests under the thread sanitizer'
	@echo 'make fuzz     every fuzz target for FUZZ_SECONDS (60) each'
	@echo 'make soak     recorders followed for SOAK_SECONDS (120) of media, killed SOAK_KILLS (2000) times, and their'
	@echo '              movie renamed SOAK_RENAMES (500) times'
	@echo 'make bench    measurements, each beside what it is compared with'
	@echo 'make format   lays the sources out by .clang-format'
	@echo 'make lint     layout, clang-tidy and the shell scripts, without changing anything'
	@echo 'make install  to PREFIX (/usr/local), below DESTDIR where given'
	@echo 'make clean    removes build/'

build:
	@scripts/install-deps build
	@cmake --preset release >/dev/null
	@cmake --build --preset release --parallel $(JOBS) -- --quiet

demo:
	@scripts/install-deps build demo
	@$(MAKE) --no-print-directory build
	@build/release/bin/mediacore_demo "$(FILE)"
	@build/release/bin/mediacore info "$(FILE)"

test:
	@scripts/install-deps build demo test
	@scripts/run-tests asan tsan dev

asan tsan:
	@scripts/install-deps build test
	@scripts/run-tests $@

fuzz:
	@scripts/install-deps build fuzz
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz --parallel $(JOBS) -- --quiet
	@scripts/run-fuzz $(FUZZ_SECONDS)

soak:
	@scripts/install-deps build test
	@cmake --preset dev >/dev/null
	@cmake --build --preset dev --parallel $(JOBS) --target test_stress -- --quiet
	@scripts/run-soak $(SOAK_SECONDS) $(SOAK_KILLS) $(SOAK_RENAMES)

bench:
	@scripts/install-deps build demo bench
	@cmake --preset release -DMEDIACORE_BENCH=ON >/dev/null
	@cmake --build --preset release --parallel $(JOBS) -- --quiet
	@set -e; shopt -s nullglob; for program in build/release/bin/*_bench; do echo "== $${program##*/}"; "$$program"; done

format:
	@scripts/install-deps lint
	@clang-format -i $(FORMATTED)

lint:
	@scripts/install-deps build test lint
	@clang-format --dry-run -Werror $(FORMATTED)
	@shellcheck scripts/* .ci/run
	@cmake --preset dev >/dev/null
	@run-clang-tidy -quiet -p build/dev -j $(JOBS) '$(CURDIR)/(services|mediautil|neighbours|backends|tools|examples)/.*'

install: build
	@cmake --install build/release --prefix "$(PREFIX)"

clean:
	@rm -rf build
