# GoogleTest built for the target from Debian's sources, and tests run under
# Wine through CTest's cross-compiling emulator with a Wine prefix of the build's own.
set(QUILLON_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources")
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(${QUILLON_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

set(QUILLON_WINEPREFIX "${CMAKE_BINARY_DIR}/wineprefix" CACHE PATH "Wine prefix the tests run in")
set(QUILLON_WINE wine CACHE STRING "Wine loader used to run test programs")
set(QUILLON_WINESERVER wineserver CACHE STRING "Wine server matching QUILLON_WINE")
configure_file(${CMAKE_CURRENT_LIST_DIR}/wine-run.in ${CMAKE_BINARY_DIR}/wine-run @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR OR CMAKE_CROSSCOMPILING_EMULATOR STREQUAL "")
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run CACHE FILEPATH "" FORCE)
endif()

# quillon_add_test(name SOURCES ... [LOCK]): one test executable, one CTest test.
# LOCK serialises tests that touch machine-wide names (kernel objects, registry, files).
function(quillon_add_test name)
  cmake_parse_arguments(ARG "LOCK" "" "SOURCES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE quillon_core GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tools)
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES TIMEOUT 120)
  if(ARG_LOCK)
    set_tests_properties(${name} PROPERTIES RESOURCE_LOCK quillon_machine_names)
  endif()
endfunction()
