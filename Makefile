# Entry points for a fresh Debian 12 machine: each target installs what is
# missing, configures and builds before it runs anything.
BUILD_DIR ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

.PHONY: all deps configure build test clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure --timeout 600 -j$(JOBS)

clean:
	rm -rf $(BUILD_DIR)
