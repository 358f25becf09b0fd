# Resource scripts (icons, manifests, dialogs, version information) for the
# shipped files. The project's compiler preprocesses a script, so that it
# sees Windows' headers and the version number; llvm-windres then compiles it
# into a COFF object for the target's machine, which the target links.
include_guard(GLOBAL)

find_program(QUILLON_WINDRES NAMES llvm-windres llvm-windres-14 llvm-windres-15 REQUIRED)
string(REPLACE "-windows-gnu" "-w64-mingw32" _quillon_windres_target "${QUILLON_ZIG_TARGET}")

# quillon_add_resources(<target> <script.rc> [VERSION x.y.z] [INCLUDES dir...] [DEPENDS file...])
# VERSION stands in for the project's version (a test's second version).
function(quillon_add_resources target rc)
  cmake_parse_arguments(ARG "" "VERSION" "INCLUDES;DEPENDS" ${ARGN})
  if(NOT ARG_VERSION)
    set(ARG_VERSION ${PROJECT_VERSION})
  endif()
  string(REPLACE "." ";" version_parts ${ARG_VERSION})
  list(GET version_parts 0 major)
  list(GET version_parts 1 minor)
  list(GET version_parts 2 patch)
  get_filename_component(rc_dir ${rc} DIRECTORY)
  set(preprocessed ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc.i)
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.res.obj)
  set(includes)
  foreach(dir ${rc_dir} ${PROJECT_SOURCE_DIR}/cmake/resources ${ARG_INCLUDES})
    list(APPEND includes -I${dir})
  endforeach()
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${CMAKE_C_COMPILER} -E -x c -DRC_INVOKED ${includes}
            -DQUILLON_VERSION_MAJOR=${major} -DQUILLON_VERSION_MINOR=${minor} -DQUILLON_VERSION_PATCH=${patch}
            "-DQUILLON_VERSION_TEXT=\"${ARG_VERSION}\""
            ${rc} -o ${preprocessed}
    COMMAND ${QUILLON_WINDRES} --no-preprocess --target=${_quillon_windres_target} ${includes}
            ${preprocessed} -O coff -o ${object}
    DEPENDS ${rc} ${PROJECT_SOURCE_DIR}/cmake/resources/version.rc ${ARG_DEPENDS}
    COMMENT "Compiling the resources of ${target}"
    VERBATIM)
  target_sources(${target} PRIVATE ${object})
endfunction()
