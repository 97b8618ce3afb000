# make demo: run the daemon on the simulated phone8 device, then draw the run in build/demo.png.
# make test: build and run every test, again under AddressSanitizer and UBSan and again under
# ThreadSanitizer (clang).
# make bench: time each collector's handler, a whole tick and the record upload on phone8.
# make fuzz: run each libFuzzer harness of tests/fuzz for FUZZ_SECONDS seconds.
# make fault: the fault tests' long form (bigger storms, longer churn) on the sanitizer build.
# make test-arm64: cross-build for AArch64 and run every test under qemu user-mode emulation.
# make check-aosp: compile the daemon against the genuine AOSP log and cutils headers, link it
#   against the genuine liblog.
# make check-device-files: Android.bp formatting and the SELinux policy's syntax.
JOBS ?= 2
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60

.PHONY: all deps build build-asan build-tsan build-fuzz test test-arm64 check-aosp \
	check-device-files demo bench fuzz fault clean

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
	@echo "== tests: normal =="
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)
	@echo "== tests: sanitizers (ASan+UBSan) =="
	@cd $(ASAN_BUILD) && ctest --output-on-failure -j$(JOBS)
	@echo "== tests: ThreadSanitizer =="
	@cd $(TSAN_BUILD) && TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1" \
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

demo: build
	@bash sim/demo.sh

# The daemon's log lines go to $(BUILD)/bench/tarn_bench.log; BENCH_ARGS are passed to the benchmark
# (e.g. BENCH_ARGS=--benchmark_repetitions=5).
bench: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j$(JOBS) --target tarn_sim tarn_bench
	@$(BUILD)/tarn_sim run --image sim/devices/phone8 --no-perf-hal --no-telemetry \
		-- $(BUILD)/bench/tarn_bench $(BENCH_ARGS) 2>$(BUILD)/bench/tarn_bench.log \
		|| { tail -n 5 $(BUILD)/bench/tarn_bench.log; exit 1; }

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) build-arm64 build-aosp
