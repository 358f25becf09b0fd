# Resource scripts (icons, manifests, dialogs, version information) for the
# shipped files. The project's compiler preprocesses a script, so that it
# sees Windows' headers and the version number; llvm-windres then compiles it
# into a COFF object for the target's machine, which the target links.
include_guard(GLOBAL)

find_program(QUILLON_WINDRES NAMES llvm-windres llvm-windres-14 llvm-windres-15 REQUIRED)
string(REPLACE "-windows-gnu" "-w64-mingw32" _quillon_windres_target "${QUILLON_ZIG_TARGET}")

# quillon_add_resources(<target> <script.rc> [INCLUDES dir...] [DEPENDS file...])
function(quillon_add_resources target rc)
  cmake_parse_arguments(ARG "" "" "INCLUDES;DEPENDS" ${ARGN})
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
            -DQUILLON_VERSION_MAJOR=${PROJECT_VERSION_MAJOR} -DQUILLON_VERSION_MINOR=${PROJECT_VERSION_MINOR}
            -DQUILLON_VERSION_PATCH=${PROJECT_VERSION_PATCH} "-DQUILLON_VERSION_TEXT=\"${PROJECT_VERSION}\""
            ${rc} -o ${preprocessed}
    COMMAND ${QUILLON_WINDRES} --no-preprocess --target=${_quillon_windres_target} ${includes}
            ${preprocessed} -O coff -o ${object}
    DEPENDS ${rc} ${PROJECT_SOURCE_DIR}/cmake/resources/version.rc ${ARG_DEPENDS}
    COMMENT "Compiling the resources of ${target}"
    VERBATIM)
  target_sources(${target} PRIVATE ${object})
endfunction()
