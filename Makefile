# The two everyday commands: `make demo` and `make test`. Each installs what is missing, configures and
# builds first, so both work on a fresh Debian machine; run again, each prints only its own output.
BUILD      ?= build
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

# CMake's makefiles run as sub-makes of this one and would announce every folder they enter.
MAKEFLAGS += --no-print-directory

.PHONY: all deps configure build demo test test-sanitize fuzz bench gpu-bundle gpu-bundle-check clean

all: build

deps:
	@bash scripts/install-deps.sh

# Configures a new build folder, or an existing one when CMAKE_ARGS asks for something. A configured folder
# needs nothing here: its build reconfigures itself when a CMakeLists.txt changes.
configure: deps
	@if [ -n "$(CMAKE_ARGS)" ] || [ ! -f $(BUILD)/CMakeCache.txt ] || \
	    { [ ! -f $(BUILD)/Makefile ] && [ ! -f $(BUILD)/build.ninja ]; }; then \
	  cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS) >/dev/null; \
	fi

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# Only the program and what it loads at run time (the library, the host services, the kernel modules), then
# the showcase (scripts/demo.sh) into demo-out/.
demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target lumora_cli
	@bash scripts/demo.sh $(BUILD)/bin/lumora demo-out

test: build
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The suite under AddressSanitizer and UndefinedBehaviorSanitizer, then under ThreadSanitizer, each in a
# build folder of its own. Neither runs with suppressions: a leaked cl_mem, event or program fails, and so
# does a race anywhere in the process.
test-sanitize: deps
	@cmake -S . -B $(BUILD)-asan -DCMAKE_BUILD_TYPE=Debug -DLUMORA_BUILD_BENCH=OFF \
	  -DLUMORA_SANITIZE=address,undefined >/dev/null
	@cmake --build $(BUILD)-asan -j $(JOBS)
	@ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(BUILD)-asan --output-on-failure -j $(JOBS)
	@cmake -S . -B $(BUILD)-tsan -DCMAKE_BUILD_TYPE=Debug -DLUMORA_BUILD_BENCH=OFF \
	  -DLUMORA_SANITIZE=thread >/dev/null
	@cmake --build $(BUILD)-tsan -j $(JOBS)
	@TSAN_OPTIONS="halt_on_error=1" \
	  ctest --test-dir $(BUILD)-tsan --output-on-failure -j $(JOBS)

# The libFuzzer target, built with clang under AddressSanitizer and UndefinedBehaviorSanitizer in its own
# build folder, run for FUZZ_SECONDS on the OpenCL device; what it finds lands in $(BUILD)-fuzz/.
FUZZ_SECONDS ?= 60
fuzz:
	@bash scripts/install-deps.sh fuzz
	@CC=clang CXX=clang++ cmake -S . -B $(BUILD)-fuzz -DCMAKE_BUILD_TYPE=Debug -DLUMORA_BUILD_BENCH=OFF \
	  -DLUMORA_SANITIZE=address,undefined -DLUMORA_FUZZER=ON >/dev/null
	@cmake --build $(BUILD)-fuzz -j $(JOBS) --target lumora_fuzzer
	@mkdir -p $(BUILD)-fuzz/corpus
	@cd $(BUILD)-fuzz && ASAN_OPTIONS=detect_leaks=1 bin/lumora_fuzzer -max_total_time=$(FUZZ_SECONDS) \
	  -max_len=4096 -print_final_stats=1 corpus

# Bandwidth on every qualified device against the memcpy references, then the host-side costs on the fake
# CUDA driver.
bench: configure
	@cmake --build $(BUILD) -j $(JOBS) --target lumora_bench lumora_host_bench
	@$(BUILD)/bin/lumora_bench --benchmark_out=$(BUILD)/bench-results.json --benchmark_out_format=json
	@$(BUILD)/bin/lumora_host_bench --benchmark_out=$(BUILD)/bench-host-results.json --benchmark_out_format=json

clean:
	@rm -rf $(BUILD) $(BUILD)-asan $(BUILD)-tsan $(BUILD)-fuzz build-release

# The GPU check (docs/gpu-check.md): a Release build gathered with every library it needs into
# build/gpu-bundle/, for a machine with an NVIDIA driver and nothing else of ours; and that bundle run here,
# in an environment stripped of everything but PATH, so that a library it lacks cannot hide.
gpu-bundle: deps
	@bash scripts/make-gpu-bundle.sh

gpu-bundle-check: gpu-bundle
	@env -i PATH=/usr/bin:/bin build/gpu-bundle/run.sh $(BUILD)/gpu-check
