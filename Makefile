# Front door of the project. Every target installs what it needs first.
BUILD ?= build
X64 := $(BUILD)/x64
ARM64 := $(BUILD)/arm64
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps build test test-x64 test-arm64 bench demo demo-block-voice package clean

all: build

deps:
	@scripts/install-deps.sh
	@scripts/fetch-zig.sh
	@scripts/third-party.sh all

$(X64)/build.ninja: | deps
	cmake -G Ninja -S . -B $(X64) -DCMAKE_TOOLCHAIN_FILE=cmake/x86_64-windows-gnu.cmake $(CMAKE_FLAGS)

# The shipped ARM64 library; its tests run under emulated ARM64 Wine (make test-arm64).
$(ARM64)/build.ninja: | deps
	cmake -G Ninja -S . -B $(ARM64) -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-windows-gnu.cmake $(CMAKE_FLAGS) \
	  "-DQUILLON_WINE=$(CURDIR)/scripts/arm64-wine.sh exec wine" \
	  "-DQUILLON_WINESERVER=$(CURDIR)/scripts/arm64-wine.sh exec wineserver"

build: deps $(X64)/build.ninja $(ARM64)/build.ninja
	cmake --build $(X64)
	cmake --build $(ARM64)

# Both suites, x64 first. QUILLON_SKIP_ARM64=1 skips the ARM64 one deliberately.
test: test-x64
ifeq ($(QUILLON_SKIP_ARM64),1)
	@echo "ARM64 suite skipped (QUILLON_SKIP_ARM64=1): only the x64 build was tested."
else
	@$(MAKE) --no-print-directory test-arm64
endif

test-x64: build
	scripts/check-layers.sh
	scripts/check-dll.sh $(ARM64)/bin/Quillon.dll arm64 --exports
	scripts/check-dll.sh $(X64)/bin/Quillon.dll x64 --exports
	scripts/check-dll.sh $(ARM64)/bin/quillon.exe arm64 --console
	scripts/check-dll.sh $(X64)/bin/quillon.exe x64 --console
	scripts/check-dll.sh $(ARM64)/bin/quillon-board.exe arm64 --gui
	scripts/check-dll.sh $(X64)/bin/quillon-board.exe x64 --gui
	scripts/check-realtime.py $(X64)/bin/Quillon.dll
	scripts/run-tests.sh $(X64)

# The shipped ARM64 build's suite, inside an emulated ARM64 Debian with ARM64 Wine.
test-arm64: build
	@scripts/arm64-wine.sh check || { echo "ARM64 suite cannot run: this kernel does not run ARM64 programs (needs binfmt_misc and the packages qemu-user-static and binfmt-support); set QUILLON_SKIP_ARM64=1 to skip it." >&2; exit 1; }
	scripts/arm64-wine.sh run-tests $(ARM64)

bench: build
	scripts/run-bench.sh $(X64)

# The setup packages of both architectures, in out/, signed when
# QUILLON_SIGN_PFX and QUILLON_SIGN_PASSWORD_FILE give a certificate.
package: build
	scripts/package.sh out $(X64):x64 $(ARM64):arm64

# Quillon's main job end to end; leaves WAVs, a picture and a summary in out/demo/.
demo: deps $(X64)/build.ninja
	cmake --build $(X64) --target quillon-host quillon quillon-board Quillon
	scripts/demo.sh

# The same with block voice: the player's sound replaces the microphone while it plays.
demo-block-voice: deps $(X64)/build.ninja
	cmake --build $(X64) --target quillon-host quillon quillon-board Quillon
	scripts/demo.sh --block-voice

clean:
	rm -rf $(BUILD)
