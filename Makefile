# Entry points for a fresh Debian 12 machine: each target installs what is
# missing, configures and builds before it runs anything.
BUILD_DIR ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

.PHONY: all deps configure build test demo check-sanitizers bench format format-check clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure --timeout 600 -j$(JOBS)

# The main job: two simulated cameras shared by a dozen clients for a few
# seconds; pictures land in demo-output/. DEMO_ARGS passes options through.
DEMO_ARGS ?=
demo: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS) --target framehub-demo
	@$(BUILD_DIR)/tools/framehub-demo $(DEMO_ARGS)

# The whole suite under AddressSanitizer with UndefinedBehaviorSanitizer, then
# under ThreadSanitizer, each in its own build directory.
check-sanitizers: deps
	@cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFRAMEHUB_SANITIZE="address;undefined" >/dev/null
	@cmake --build build-asan -j$(JOBS)
	@cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
		ctest --output-on-failure --timeout 900 -j$(JOBS)
	@cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFRAMEHUB_SANITIZE=thread >/dev/null
	@cmake --build build-tsan -j$(JOBS)
	@cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/tsan.supp" \
		ctest --output-on-failure --timeout 900 -j$(JOBS)

# Benchmarks in a Release build of their own: the 2D conversions against
# memcpy, OpenCV and libyuv (medians of three runs and the ratio summary),
# the depth conversions against memcpy, the per-frame image hand-out, and the
# V4L2 grab against memcpy of the frame.
bench: deps
	@cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DFRAMEHUB_BUILD_BENCH=ON -DFRAMEHUB_BUILD_TESTS=OFF >/dev/null
	@cmake --build build-bench -j$(JOBS)
	@build-bench/bench/conversion_bench --benchmark_color=false --benchmark_min_time=0.2 \
		--benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	@build-bench/bench/depth_bench --benchmark_color=false
	@build-bench/bench/handout_bench --benchmark_color=false
	@[ ! -x build-bench/bench/v4l2_grab_bench ] || build-bench/bench/v4l2_grab_bench --benchmark_color=false \
		--benchmark_min_time=0.2 --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

# Every C++ file git tracks, against .clang-format.
FORMAT_FILES = git ls-files '*.cpp' '*.h'
format: deps
	@$(FORMAT_FILES) | xargs clang-format -i

format-check: deps
	@$(FORMAT_FILES) | xargs clang-format --dry-run --Werror && echo "format-check: clean"

clean:
	rm -rf $(BUILD_DIR) build-asan build-tsan build-bench
