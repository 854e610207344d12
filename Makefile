# Entry points for a fresh Debian 12 machine: each target installs what is
# missing, configures and builds before it runs anything.
BUILD_DIR ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

.PHONY: all deps configure build test demo check-sanitizers fuzz bench format format-check tidy clean install package

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
		LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp ctest --output-on-failure --timeout 900 -j$(JOBS)
	@cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFRAMEHUB_SANITIZE=thread >/dev/null
	@cmake --build build-tsan -j$(JOBS)
	@cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/tsan.supp" \
		ctest --output-on-failure --timeout 900 -j$(JOBS)

# The hub fuzzer for FUZZ_SECONDS, built with clang in its own directory.
# New inputs land in build-fuzz/corpus; tests/fuzz/corpus holds the seeds.
FUZZ_SECONDS ?= 600
fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFRAMEHUB_FUZZ=ON \
		-DFRAMEHUB_BUILD_TESTS=OFF -DFRAMEHUB_BUILD_TOOLS=OFF >/dev/null
	@cmake --build build-fuzz -j$(JOBS) --target hub_fuzzer
	@mkdir -p build-fuzz/corpus
	@build-fuzz/tests/fuzz/hub_fuzzer -max_total_time=$(FUZZ_SECONDS) -max_len=2048 -timeout=20 -artifact_prefix=build-fuzz/ \
		-rss_limit_mb=4096 -print_final_stats=1 build-fuzz/corpus tests/fuzz/corpus

# Benchmarks in a Release build of their own: the 2D conversions against
# memcpy, OpenCV and libyuv (medians of three runs and the ratio summary),
# the depth conversions against memcpy, the per-frame image hand-out, the
# scaling curve of one camera shared by 1 to 32 subscribers (docs/scaling.png),
# the Python module's fetch against the same fetch in C++, and the V4L2 grab
# against memcpy of the frame.
bench: deps
	@cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DFRAMEHUB_BUILD_BENCH=ON -DFRAMEHUB_BUILD_TESTS=OFF >/dev/null
	@cmake --build build-bench -j$(JOBS)
	@build-bench/bench/conversion_bench --benchmark_color=false --benchmark_min_time=0.2 \
		--benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	@build-bench/bench/depth_bench --benchmark_color=false
	@build-bench/bench/handout_bench --benchmark_color=false
	@/usr/bin/python3 bench/plot_scaling.py build-bench/bench/scaling_bench docs/scaling.png
	@if [ -d build-bench/python/framehub ]; then PYTHONPATH=build-bench/python /usr/bin/python3 \
		bench/python_image_bench.py build-bench/bench/image_fetch_loop; fi
	@[ ! -x build-bench/bench/v4l2_grab_bench ] || build-bench/bench/v4l2_grab_bench --benchmark_color=false \
		--benchmark_min_time=0.2 --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

# Libraries, headers, CMake and pkg-config files, tools and the Python
# module under PREFIX, staged under DESTDIR when it is set.
PREFIX ?= /usr/local
DESTDIR ?=
install: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=$(PREFIX) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD_DIR) -j$(JOBS)
	@DESTDIR=$(DESTDIR) cmake --install $(BUILD_DIR) --prefix $(PREFIX)

# A Debian package of the same files for /usr, in $(BUILD_DIR).
package: build
	@cd $(BUILD_DIR) && cpack -G DEB

# Every C++ file git tracks, against .clang-format.
FORMAT_FILES = git ls-files '*.cpp' '*.h'
format: deps
	@$(FORMAT_FILES) | xargs clang-format -i

format-check: deps
	@$(FORMAT_FILES) | xargs clang-format --dry-run --Werror && echo "format-check: clean"

# clang-tidy over the library, the platform and the tools (.clang-tidy).
tidy: deps
	@cmake -S . -B build-tidy -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
		-DFRAMEHUB_BUILD_TESTS=OFF >/dev/null
	@run-clang-tidy -quiet -p build-tidy -j $(JOBS) '$(CURDIR)/(src|platform|tools)/.*\.cpp$$' > build-tidy/tidy.log 2>&1 \
		|| { cat build-tidy/tidy.log; exit 1; }
	@if grep -q 'warning:' build-tidy/tidy.log; then grep -A3 'warning:' build-tidy/tidy.log; exit 1; fi
	@echo "tidy: clean"

clean:
	rm -rf $(BUILD_DIR) build-asan build-tsan build-bench build-fuzz build-tidy
