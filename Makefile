# Wraps CMake. `make` builds Release into build/ (binary: build/quivelar).
JOBS ?= $(shell nproc)

.PHONY: all deps build test test-release test-asan tsan test-fuzz fuzz fuzz-build demo bench clean

all: build

deps:
	@scripts/install-deps

build:
	@cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build -j $(JOBS)

# Every test runs once, on a build with AddressSanitizer and
# UndefinedBehaviorSanitizer (line tables only: enough for their reports, and
# a faster build). The Release build, the one users run, builds only the
# program and the tests of optimised code (tests/CMakeLists.txt says which)
# and runs those again, plus the Slurm cluster test (label lancamento), which
# runs there only. Then the fuzzers replay their committed corpus.
test: deps test-asan test-release test-fuzz

test-release:
	@cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build -j $(JOBS) --target quivelar testes_otimizados
	cd build && ctest --output-on-failure -j $(JOBS) -L 'otimizado|lancamento'

test-asan:
	@cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" \
	  -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" -DQUIVELAR_SANITIZE=ON >/dev/null
	@cmake --build build-asan -j $(JOBS)
	cd build-asan && ASAN_OPTIONS=detect_leaks=0:abort_on_error=0 ctest --output-on-failure -j $(JOBS) -LE lancamento

# The code that runs on several threads (the safe writer, the task graph, the
# sweep) under ThreadSanitizer; any report stops the process with status 66,
# so the test fails. tests/tsan.supp names the few reports inside libraries
# we do not build. One test at a time: a sweep already keeps both cores busy,
# and the time limits of its runs hold under the slowdown only without a
# second one beside it.
tsan:
	@cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" \
	  -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" -DQUIVELAR_TSAN=ON >/dev/null
	@cmake --build build-tsan -j $(JOBS) --target testes_tsan
	cd build-tsan && TSAN_OPTIONS=halt_on_error=1:exitcode=66:suppressions=$(CURDIR)/tests/tsan.supp \
	  ctest --output-on-failure -L tsan

# libFuzzer on the readers of untrusted input. Every test run replays the
# committed corpus, each input once: the same verdict on every machine.
# Exploration is `make fuzz` (FUZZ_SECONDS per target); what it finds is
# fixed and then committed to the corpus.
FUZZ_SECONDS ?= 300

fuzz-build:
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUIVELAR_FUZZ=ON >/dev/null
	@cmake --build build-fuzz -j $(JOBS)

test-fuzz: fuzz-build
	scripts/fuzz --replay

fuzz: deps fuzz-build
	scripts/fuzz $(FUZZ_SECONDS)

# The demo needs only the program and its plug-ins, not the tests.
demo: deps
	@cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build -j $(JOBS) --target quivelar
	scripts/demo

bench: deps
	@cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DQUIVELAR_BENCH=ON >/dev/null
	@cmake --build build -j $(JOBS)
	build/bench/quivelar_bench --benchmark_min_time=0.3

clean:
	rm -rf build build-asan build-fuzz build-tsan demo-out
