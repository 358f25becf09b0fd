# Front door of the project. Every target installs what it needs first.
BUILD ?= build
X64 := $(BUILD)/x64
ARM64 := $(BUILD)/arm64
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps build test bench clean

all: build

deps:
	@scripts/install-deps.sh
	@scripts/fetch-zig.sh

$(X64)/build.ninja: | deps
	cmake -G Ninja -S . -B $(X64) -DCMAKE_TOOLCHAIN_FILE=cmake/x86_64-windows-gnu.cmake $(CMAKE_FLAGS)

# The shipped ARM64 library; its tests run under emulated ARM64 Wine (make test-arm64).
$(ARM64)/build.ninja: | deps
	cmake -G Ninja -S . -B $(ARM64) -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-windows-gnu.cmake $(CMAKE_FLAGS)

build: deps $(X64)/build.ninja $(ARM64)/build.ninja
	cmake --build $(X64)
	cmake --build $(ARM64) --target Quillon

test: build
	scripts/check-dll.sh $(ARM64)/Quillon.dll arm64
	scripts/check-dll.sh $(X64)/Quillon.dll x64
	scripts/run-tests.sh $(X64)

bench: build
	WINEPREFIX=$(abspath $(X64))/wineprefix $(X64)/wine-run $(X64)/bench/quillon_bench.exe

clean:
	rm -rf $(BUILD)
