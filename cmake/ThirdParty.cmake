# Imported targets for the audio libraries that scripts/third-party.sh builds
# (static, one install prefix per target):
#   quillon::sndfile  libsndfile with FLAC, Ogg, Vorbis, Opus, mpg123 and LAME
#   quillon::soxr     libsoxr
#   quillon::ebur128  libebur128
# QUILLON_THIRD_PARTY_PREFIX may name a prefix that
# `scripts/third-party.sh prefix <target>` printed; left empty, this file runs
# that command at every configure (it answers from its cache at once), so the
# build always links the libraries that the current script pins. Editing the
# script configures again.
include_guard(GLOBAL)

set(QUILLON_THIRD_PARTY_PREFIX "" CACHE PATH "Install prefix of the third-party audio libraries (empty: scripts/third-party.sh decides)")
set(_quillon_tp_script "${CMAKE_CURRENT_LIST_DIR}/../scripts/third-party.sh")
set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${_quillon_tp_script}")
set(_quillon_tp_prefix "${QUILLON_THIRD_PARTY_PREFIX}")
if(NOT _quillon_tp_prefix)
  if(NOT QUILLON_ZIG_TARGET)
    message(FATAL_ERROR "ThirdParty.cmake: no QUILLON_ZIG_TARGET to build the audio libraries for")
  endif()
  execute_process(
    COMMAND "${_quillon_tp_script}" prefix "${QUILLON_ZIG_TARGET}"
    OUTPUT_VARIABLE _quillon_tp_prefix
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE _quillon_tp_result)
  if(NOT _quillon_tp_result EQUAL 0)
    message(FATAL_ERROR "ThirdParty.cmake: scripts/third-party.sh prefix ${QUILLON_ZIG_TARGET} failed")
  endif()
endif()

# The script writes its stamp last, so a prefix with a stamp is complete; the
# stamp also says which target the prefix was built for.
set(_quillon_tp_stamp "${_quillon_tp_prefix}/quillon-third-party.stamp")
if(NOT EXISTS "${_quillon_tp_stamp}")
  message(FATAL_ERROR "ThirdParty.cmake: ${_quillon_tp_prefix} is not a complete third-party prefix (no ${_quillon_tp_stamp})")
endif()
file(STRINGS "${_quillon_tp_stamp}" _quillon_tp_target REGEX "^target=")
string(REPLACE "target=" "" _quillon_tp_target "${_quillon_tp_target}")
if(QUILLON_ZIG_TARGET AND NOT _quillon_tp_target STREQUAL QUILLON_ZIG_TARGET)
  message(FATAL_ERROR "ThirdParty.cmake: ${_quillon_tp_prefix} holds ${_quillon_tp_target} libraries, this build is for ${QUILLON_ZIG_TARGET}")
endif()

# quillon_tp::NAME for lib/libFILE.a, linked before the targets in DEPS.
function(_quillon_tp_library name file)
  set(_location "${_quillon_tp_prefix}/lib/lib${file}.a")
  if(NOT EXISTS "${_location}")
    message(FATAL_ERROR "ThirdParty.cmake: missing ${_location}")
  endif()
  add_library(quillon_tp::${name} STATIC IMPORTED GLOBAL)
  set_target_properties(quillon_tp::${name} PROPERTIES
    IMPORTED_LOCATION "${_location}"
    IMPORTED_LINK_INTERFACE_LANGUAGES C
    INTERFACE_INCLUDE_DIRECTORIES "${_quillon_tp_prefix}/include"
    INTERFACE_LINK_LIBRARIES "${ARGN}")
endfunction()

# Each library comes before the ones it uses, so one pass of the linker
# resolves everything:
#   sndfile FLAC vorbisenc vorbis opus ogg mp3lame mpg123 shlwapi
_quillon_tp_library(ogg ogg)
_quillon_tp_library(FLAC FLAC quillon_tp::ogg)
_quillon_tp_library(vorbis vorbis quillon_tp::ogg)
_quillon_tp_library(vorbisenc vorbisenc quillon_tp::vorbis)
_quillon_tp_library(opus opus)
_quillon_tp_library(mp3lame mp3lame)
# libmpg123 calls PathCombineW (shlwapi) in its Windows file-name helpers.
_quillon_tp_library(mpg123 mpg123 shlwapi)
_quillon_tp_library(sndfile sndfile
  quillon_tp::FLAC quillon_tp::vorbisenc quillon_tp::vorbis quillon_tp::opus quillon_tp::ogg
  quillon_tp::mp3lame quillon_tp::mpg123)
_quillon_tp_library(soxr soxr)
_quillon_tp_library(ebur128 ebur128)

# Static libraries on Windows: FLAC's headers declare dllimport functions unless
# FLAC__NO_DLL is defined (sndfile.h, soxr.h and the others need nothing: soxr.h
# only uses dllimport with SOXR_DLL, mpg123.h with LINK_MPG123_DLL).
set_property(TARGET quillon_tp::FLAC PROPERTY INTERFACE_COMPILE_DEFINITIONS FLAC__NO_DLL)

add_library(quillon::sndfile ALIAS quillon_tp::sndfile)
add_library(quillon::soxr ALIAS quillon_tp::soxr)
add_library(quillon::ebur128 ALIAS quillon_tp::ebur128)
