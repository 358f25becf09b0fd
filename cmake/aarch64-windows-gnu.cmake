set(QUILLON_ZIG_TARGET aarch64-windows-gnu)
set(CMAKE_SYSTEM_PROCESSOR ARM64)
include("${CMAKE_CURRENT_LIST_DIR}/zig-windows.cmake")
