# Cross-compiling for Windows with the project's pinned Zig (clang, libc++,
# MinGW-w64 runtime). Included by the per-target toolchain files, which set
# QUILLON_ZIG_TARGET and CMAKE_SYSTEM_PROCESSOR.
set(CMAKE_SYSTEM_NAME Windows)
set(_quillon_wrappers "${CMAKE_CURRENT_LIST_DIR}/zig")
set(CMAKE_C_COMPILER "${_quillon_wrappers}/${QUILLON_ZIG_TARGET}-cc")
set(CMAKE_CXX_COMPILER "${_quillon_wrappers}/${QUILLON_ZIG_TARGET}-c++")
set(CMAKE_AR "${_quillon_wrappers}/zig-ar" CACHE FILEPATH "" FORCE)
set(CMAKE_RANLIB "${_quillon_wrappers}/zig-ranlib" CACHE FILEPATH "" FORCE)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
