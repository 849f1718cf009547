# Drives the three builds: native Release, native Debug with ASan+UBSan, and
# i386 Release (the host's real ABI).
#   make demo    bootstrap, build, run the tour through kelto
#   make test    bootstrap, build all three, run every suite in each
#   make bench   vorn-bench against FLINT (native Release)
JOBS ?= $(shell nproc)
BUILDS := build/release build/asan build/i386
CMAKE_FLAGS ?=

.PHONY: all bootstrap configure build test test-release test-asan test-i386 demo install bench clean
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
	build/release/bin/kelto examples/tour.kel

bench: bootstrap
	cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DVORN_BUILD_BENCH=ON $(CMAKE_FLAGS)
	cmake --build build/release -j $(JOBS) --target vorn-bench
	build/release/bin/vorn-bench $(BENCH_FLAGS)

install: bootstrap build/release/CMakeCache.txt
	cmake --build build/release -j $(JOBS)
	cmake --install build/release --prefix $(PREFIX)

clean:
	rm -rf build
