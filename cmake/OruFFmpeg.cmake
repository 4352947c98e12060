# Provides the imported target oru::ffmpeg for the project's own FFmpeg build and sets
# ORUPLAY_FFMPEG_PREFIX to where it lives.
#
# By default the build is made (once per source version and patch) by
# third_party/ffmpeg/build.sh under ORUPLAY_FFMPEG_ROOT, which all presets of an architecture
# share; a cross toolchain file (cmake/toolchains/) names the architecture in
# ORUPLAY_TARGET_ARCH and its sysroot in CMAKE_SYSROOT. A packager that has built it already
# sets ORUPLAY_FFMPEG_PREFIX instead.

if(ORUPLAY_TARGET_ARCH)
  set(_oru_ffmpeg_target ${ORUPLAY_TARGET_ARCH} "${CMAKE_SYSROOT}")
  set(_oru_ffmpeg_default_root "${PROJECT_SOURCE_DIR}/build/ffmpeg-${ORUPLAY_TARGET_ARCH}")
else()
  set(_oru_ffmpeg_target)
  set(_oru_ffmpeg_default_root "${PROJECT_SOURCE_DIR}/build/ffmpeg")
endif()
set(ORUPLAY_FFMPEG_ROOT "${_oru_ffmpeg_default_root}"
    CACHE PATH "Folder under which third_party/ffmpeg/build.sh keeps its FFmpeg builds")
set(ORUPLAY_FFMPEG_PREFIX "" CACHE PATH "Prefix of an already built patched FFmpeg (optional)")

set(_oru_ffmpeg_prefix "${ORUPLAY_FFMPEG_PREFIX}")
if(NOT _oru_ffmpeg_prefix)
  # A change to the script or a patch makes a new build: configure again when they change.
  file(GLOB _oru_ffmpeg_patches "${PROJECT_SOURCE_DIR}/third_party/ffmpeg/*.patch")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/third_party/ffmpeg/build.sh" ${_oru_ffmpeg_patches})
  message(STATUS "Patched FFmpeg: making sure it is built (the first time takes a few minutes)")
  execute_process(
    COMMAND bash "${PROJECT_SOURCE_DIR}/third_party/ffmpeg/build.sh" "${ORUPLAY_FFMPEG_ROOT}"
            ${_oru_ffmpeg_target}
    OUTPUT_VARIABLE _oru_ffmpeg_out
    RESULT_VARIABLE _oru_ffmpeg_result
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT _oru_ffmpeg_result EQUAL 0)
    message(FATAL_ERROR "Building the patched FFmpeg failed (see the lines above)")
  endif()
  string(REGEX MATCH "[^\n]+$" _oru_ffmpeg_prefix "${_oru_ffmpeg_out}")
endif()
message(STATUS "Patched FFmpeg: ${_oru_ffmpeg_prefix}")

find_package(PkgConfig REQUIRED)
# pkg_check_modules keeps its answer, library paths included, in the cache: when they point
# into another prefix (an older build), look them up anew.
string(FIND "${pkgcfg_lib_ORU_FFMPEG_avformat_oru}" "${_oru_ffmpeg_prefix}/" _oru_cached_at)
if(DEFINED pkgcfg_lib_ORU_FFMPEG_avformat_oru AND NOT _oru_cached_at EQUAL 0)
  unset(__pkg_config_checked_ORU_FFMPEG CACHE)
  get_cmake_property(_oru_cache_variables CACHE_VARIABLES)
  foreach(_oru_variable IN LISTS _oru_cache_variables)
    if(_oru_variable MATCHES "^pkgcfg_lib_ORU_FFMPEG_")
      unset(${_oru_variable} CACHE)
    endif()
  endforeach()
endif()
# A cross build's prefix lies outside its sysroot, where libraries are otherwise looked for,
# and where the linker looks for the libraries of liboruplay when it links a program (it
# reads their RUNPATH inside the sysroot).
if(CMAKE_CROSSCOMPILING)
  list(APPEND CMAKE_FIND_ROOT_PATH "${_oru_ffmpeg_prefix}")
  add_link_options("LINKER:-rpath-link,${_oru_ffmpeg_prefix}/lib")
endif()
# Only the project's prefix is searched, so a stock FFmpeg on the machine is never picked up.
set(_oru_saved_pkg_config_path "$ENV{PKG_CONFIG_PATH}")
set(_oru_saved_pkg_config_libdir "$ENV{PKG_CONFIG_LIBDIR}")
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} "${_oru_ffmpeg_prefix}/lib/pkgconfig")
pkg_check_modules(ORU_FFMPEG REQUIRED IMPORTED_TARGET GLOBAL
                  libavformat_oru libavcodec_oru libavutil_oru libswresample_oru)
set(ENV{PKG_CONFIG_PATH} "${_oru_saved_pkg_config_path}")
set(ENV{PKG_CONFIG_LIBDIR} "${_oru_saved_pkg_config_libdir}")

add_library(oru::ffmpeg ALIAS PkgConfig::ORU_FFMPEG)
set(ORUPLAY_FFMPEG_LIBDIR "${_oru_ffmpeg_prefix}/lib")
