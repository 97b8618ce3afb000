# make demo: run the daemon on the simulated phone8 device, then draw the run in build/demo.png.
# make test: build and run every test three times: the g++ build, again under AddressSanitizer and
#   UBSan (clang), again under ThreadSanitizer (clang), each time in a shuffled order
#   (GTEST_SHUFFLE=1; a failing run prints its seed, which GTEST_RANDOM_SEED=N replays).
# make bench: measure the daemon on phone8 beside collectd, then time each handler (hot cache).
# make fuzz: run each libFuzzer harness of tests/fuzz for FUZZ_SECONDS seconds.
# make fault: the fault tests' long form (bigger storms, longer churn) on the sanitizer build.
# make test-arm64: cross-build for AArch64 and run every test under qemu user-mode emulation.
# make check-aosp: compile the daemon against the genuine AOSP log and cutils headers, link it
#   against the genuine liblog.
# make check-device-files: the device files (Android.bp, tarn_stats.rc, config.fs, sepolicy/)
#   against what the device build knows and the platform's neverallow rules, then the same check
#   on a table of broken copies, each of which it must refuse.
# make format-check: every tracked C/C++ source formatted as .clang-format says (clang-format-14).
# make tidy-check: clang-tidy on the daemon's sources with the checks of daemon/.clang-tidy.
JOBS ?= 2
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
MAKEFLAGS += --no-print-directory

.PHONY: all deps build build-asan build-tsan build-fuzz test test-arm64 check-aosp \
	check-device-files demo bench fuzz fault clean format-check tidy-check

all: build

deps:
	@bash tools/install-deps.sh

build: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j$(JOBS)

build-asan: deps
	@CC=clang CXX=clang++ cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DTARN_SANITIZE=ON >/dev/null
	@cmake --build $(ASAN_BUILD) -j$(JOBS)

build-tsan: deps
	@CC=clang CXX=clang++ cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DTARN_TSAN=ON >/dev/null
	@cmake --build $(TSAN_BUILD) -j$(JOBS)

build-fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARN_FUZZ=ON >/dev/null
	@cmake --build $(FUZZ_BUILD) -j$(JOBS)

# Every report of a sanitizer, in a test or in a program a test runs, ends that program with an
# error status and fails the test.
test: build build-asan build-tsan
	@bash tools/install-deps.sh plot
	@echo "== tests: g++ build, shuffled =="
	@cd $(BUILD) && GTEST_SHUFFLE=1 ctest --output-on-failure -j$(JOBS)
	@echo "== tests: clang ASan+UBSan build, shuffled =="
	@cd $(ASAN_BUILD) && GTEST_SHUFFLE=1 ctest --output-on-failure -j$(JOBS)
	@echo "== tests: clang ThreadSanitizer build, shuffled =="
	@cd $(TSAN_BUILD) && GTEST_SHUFFLE=1 TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1" \
		bash $(CURDIR)/tools/no-aslr.sh ctest --output-on-failure -j$(JOBS)

fault: build-asan
	@cd $(ASAN_BUILD) && TARN_FAULT_LONG=1 ctest --output-on-failure -j$(JOBS) -R '^e2e_fault_'

fuzz: build-fuzz
	@FUZZ_BUILD=$(FUZZ_BUILD) FUZZ_SECONDS=$(FUZZ_SECONDS) bash tools/fuzz.sh

test-arm64:
	@JOBS=$(JOBS) bash tools/test-arm64.sh

check-aosp:
	@JOBS=$(JOBS) bash tools/check-aosp.sh

check-device-files:
	@bash tools/check-device-files.sh
	@/usr/bin/python3 tests/tools/check_device_files_test.py

format-check:
	@bash tools/format-check.sh

tidy-check: build
	@BUILD=$(BUILD) JOBS=$(JOBS) bash tools/tidy-check.sh

demo: build
	@bash sim/demo.sh

# Measures the real daemon under tarn_sim (CPU per tick beside collectd, syscalls and allocations
# per tick of the sampling thread), then the hot-cache handler timings and a 2,000-tick soak.
# The daemon's log lines go to $(BUILD)/bench/*.log; BENCH_ARGS are passed to the benchmark
# (e.g. BENCH_ARGS=--benchmark_repetitions=5).
bench: deps
	@bash tools/install-deps.sh bench
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j$(JOBS) --target tarn_sim tarn_stats tarn_bench tarn_alloc_count
	@/usr/bin/python3 bench/run_bench.py $(BUILD) sim/devices/phone8
	@echo; echo "Hot-cache figures (each handler called in a loop on unchanging nodes):"
	@$(BUILD)/tarn_sim run --image sim/devices/phone8 --no-perf-hal --no-telemetry \
		-- $(BUILD)/bench/tarn_bench $(BENCH_ARGS) 2>$(BUILD)/bench/tarn_bench.log \
		|| { tail -n 5 $(BUILD)/bench/tarn_bench.log; exit 1; }

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) build-arm64 build-aosp
