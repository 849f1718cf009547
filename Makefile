# Drives the three builds: native Release, native Debug with ASan+UBSan, and
# i386 Release (the host's real ABI).
#   make demo    bootstrap, build, run the tour through kelto
#   make test    bootstrap, build all three, run every suite in each
#   make bench   vorn-bench against FLINT (native Release)
#   make bench-i386  vorn-bench for i386 against FLINT for i386, beside x86-64
#                (only where the kernel runs i386 programs natively)
#   make fuzz    the libFuzzer harnesses (clang), FUZZ_TIME seconds each
#   make memcheck  the unit suites under valgrind memcheck (native, no sanitizers)
JOBS ?= $(shell nproc)
BUILDS := build/release build/asan build/i386
CMAKE_FLAGS ?=

.PHONY: all bootstrap configure build test test-release test-asan test-i386 demo install bench bench-i386 clean fuzz memcheck
PREFIX ?= /usr/local

all: build

bootstrap:
	@scripts/bootstrap

build/release/CMakeCache.txt:
	cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)
build/asan/CMakeCache.txt:
	cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON $(CMAKE_FLAGS)
build/i386/CMakeCache.txt:
	cmake -S . -B build/i386 -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/i386.cmake $(CMAKE_FLAGS)

configure: bootstrap $(addsuffix /CMakeCache.txt,$(BUILDS))

build: configure
	@for b in $(BUILDS); do cmake --build $$b -j $(JOBS) || exit 1; done

test-release: configure
	cmake --build build/release -j $(JOBS)
	cd build/release && ctest --output-on-failure -j $(JOBS)
test-asan: configure
	cmake --build build/asan -j $(JOBS)
	cd build/asan && ctest --output-on-failure -j $(JOBS)
test-i386: configure
	cmake --build build/i386 -j $(JOBS)
	@echo "i386 suite: test programs run $$(cat build/i386/test-runner.txt)"
	cd build/i386 && ctest --output-on-failure -j $(JOBS)

test: bootstrap
	$(MAKE) test-release
	$(MAKE) test-asan
	$(MAKE) test-i386

demo: bootstrap build/release/CMakeCache.txt
	cmake --build build/release -j $(JOBS)
	build/release/bin/kelto -x examples/tour.kel

bench: bootstrap
	cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_BENCH=ON $(CMAKE_FLAGS)
	cmake --build build/release -j $(JOBS) --target vorn-bench
	build/release/bin/vorn-bench $(BENCH_FLAGS)

bench-i386: bootstrap
	JOBS=$(JOBS) scripts/bench-i386 $(BENCH_FLAGS)

install: bootstrap build/release/CMakeCache.txt
	cmake --build build/release -j $(JOBS)
	cmake --install build/release --prefix $(PREFIX)

# Fuzzing: a clang build with libFuzzer, ASan and UBSan.  New inputs go to
# build/fuzz/corpus/HARNESS; the repository's corpus seeds each run (merge the
# finds back with -merge=1 to keep it small).
FUZZ_TIME ?= 60
FUZZ_HARNESSES := import_fuzz entries_fuzz kelto_fuzz
# Warnings only clang raises (its -Wconversion includes sign conversions)
# stay warnings in the fuzz build.
FUZZ_CLANG_ONLY := -Wno-error=sign-conversion
build/fuzz/CMakeCache.txt:
	CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON -DVORN_FUZZ=ON \
	  "-DCMAKE_CXX_FLAGS=-O1 -fsanitize=fuzzer-no-link $(FUZZ_CLANG_ONLY)" "-DCMAKE_C_FLAGS=-O1" $(CMAKE_FLAGS)
fuzz: bootstrap build/fuzz/CMakeCache.txt
	cmake --build build/fuzz -j $(JOBS) --target $(FUZZ_HARNESSES)
	@for h in $(FUZZ_HARNESSES); do \
	  mkdir -p build/fuzz/corpus/$$h; \
	  echo "fuzz: $$h for $(FUZZ_TIME) s"; \
	  build/fuzz/bin/$$h -max_total_time=$(FUZZ_TIME) -max_len=4096 -rss_limit_mb=4096 -timeout=30 \
	    -print_final_stats=1 build/fuzz/corpus/$$h tests/fuzz/corpus/$$h || exit 1; \
	done

# valgrind memcheck of the unit suites and the corpus replays (a plain Debug
# build: valgrind and the sanitizers do not mix).
MEMCHECK_SUITES := host_tests minikelto_tests poly_tests conversion_tests arith_tests lang_tests hardening_tests
build/memcheck/CMakeCache.txt:
	cmake -S . -B build/memcheck -DCMAKE_BUILD_TYPE=Debug -DVORN_SMALL_TESTS=ON $(CMAKE_FLAGS)
memcheck: bootstrap build/memcheck/CMakeCache.txt
	cmake --build build/memcheck -j $(JOBS)
	@for s in $(MEMCHECK_SUITES); do \
	  echo "memcheck: $$s"; \
	  valgrind -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
	    build/memcheck/bin/$$s --gtest_brief=1 || exit 1; \
	done
	@for h in $(FUZZ_HARNESSES); do \
	  echo "memcheck: $$h corpus"; \
	  valgrind -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
	    build/memcheck/bin/$$h tests/fuzz/corpus/$$h || exit 1; \
	done

clean:
	rm -rf build
