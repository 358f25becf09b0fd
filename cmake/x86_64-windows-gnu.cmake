set(QUILLON_ZIG_TARGET x86_64-windows-gnu)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
include("${CMAKE_CURRENT_LIST_DIR}/zig-windows.cmake")
