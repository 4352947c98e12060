# Debian packages of the install components, made by CPack's DEB generator from the same install
# rules as `cmake --install` (the package presets build with the prefix /usr):
#
#   liboruplay<SOVERSION>  component runtime      liboruplay.so.N and its private FFmpeg
#   liboruplay-dev         component development  headers, liboruplay.so, CMake package, .pc,
#                                                  host components, the example host's source
#   oruplay                component player       the command-line player and its manual page
#
# Dependencies on other packages are computed from the binaries by dpkg-shlibdeps; only those
# between these three, and those of the -dev package's headers and CMake package, are named
# here. A cross build computes them against the package database that scripts/make-sysroot.sh
# keeps in the sysroot.

get_target_property(_oru_soversion oruplay SOVERSION)
set(_oru_runtime_package "liboruplay${_oru_soversion}")
set(ORUPLAY_PACKAGE_MAINTAINER "liboruplay developers <liboruplay@packages.invalid>"
    CACHE STRING "Maintainer field of the Debian packages")

# Debian's own files of each package: where its licence is, and its changelog, whose newest
# entry must be the version being packaged.
file(STRINGS "${PROJECT_SOURCE_DIR}/cmake/debian/changelog" _oru_changelog_head LIMIT_COUNT 1)
if(NOT _oru_changelog_head MATCHES "^liboruplay \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "cmake/debian/changelog: its first entry is not for ${PROJECT_VERSION}: "
                      "add one for this version")
endif()
set(_oru_changelog_gz "${PROJECT_BINARY_DIR}/debian/changelog.gz")
add_custom_command(OUTPUT "${_oru_changelog_gz}"
  COMMAND gzip -9n -c "${PROJECT_SOURCE_DIR}/cmake/debian/changelog" > "${_oru_changelog_gz}"
  DEPENDS "${PROJECT_SOURCE_DIR}/cmake/debian/changelog"
  VERBATIM)
add_custom_target(oruplay_debian_changelog ALL DEPENDS "${_oru_changelog_gz}")

set(_oru_package_of_runtime "${_oru_runtime_package}")
set(_oru_package_of_development liboruplay-dev)
set(_oru_package_of_player oruplay)
foreach(_oru_component IN ITEMS runtime development player)
  install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/copyright" "${_oru_changelog_gz}"
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${_oru_package_of_${_oru_component}}"
    COMPONENT ${_oru_component})
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/examples/minimal_host.cpp"
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/liboruplay-dev/examples" COMPONENT development)
configure_file("${PROJECT_SOURCE_DIR}/cmake/debian/lintian-overrides.in"
  "${PROJECT_BINARY_DIR}/debian/lintian-overrides" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/debian/lintian-overrides"
  DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides" RENAME "${_oru_runtime_package}"
  COMPONENT runtime)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME liboruplay)
set(CPACK_PACKAGE_CONTACT "${ORUPLAY_PACKAGE_MAINTAINER}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development player)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Each package's description starts with its own synopsis, not the project's.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A package's dependency on another of these three is exact: they are built together.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${_oru_runtime_package}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The shlibs file lets dpkg-shlibdeps give the packages of other hosts a dependency on this one.
# It names liboruplay only: the private FFmpeg is no library for others to link (CPack's own
# shlibs would list it too). The trigger updates the loader's cache, as Debian's libraries do.
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/debian/shlibs"
  CONTENT "liboruplay ${_oru_soversion} ${_oru_runtime_package} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${PROJECT_BINARY_DIR}/debian/shlibs" "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "audio playback engine for networked audio devices
liboruplay plays tracks from files, HTTP(S) streams, HLS radio and data
callbacks, gaplessly and on a common clock shared by several devices, into an
output device that the host program implements. It decodes with a private
build of FFmpeg, kept in a folder of its own, that never takes the place of
the system's FFmpeg.

This package holds the shared library, liboruplay.so.${_oru_soversion}.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liboruplay-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
# What its CMake package looks for (ALSA, for the host components); its headers need nothing
# beyond the C++ library.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libasound2-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "audio playback engine for networked audio devices (development files)
liboruplay plays tracks from files, HTTP(S) streams, HLS radio and data
callbacks, gaplessly and on a common clock shared by several devices, into an
output device that the host program implements.

This package holds what a host program is built with: the headers, the CMake
package (find_package(oruplay)) and the pkg-config file (oruplay), the
reference host components (ALSA, WAV and null outputs, clocks, a log sink) as
a static library, and a minimal host in
/usr/share/doc/liboruplay-dev/examples.")

set(CPACK_DEBIAN_PLAYER_PACKAGE_NAME oruplay)
set(CPACK_DEBIAN_PLAYER_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_PLAYER_DEPENDS runtime)
set(CPACK_COMPONENT_PLAYER_DESCRIPTION
    "command-line audio player on the liboruplay engine
oruplay plays files, HTTP(S) streams and radios, standard input and cue
sheets, one after the other, to the sound card through ALSA or into a WAV
file. With --at it starts at a time on the wall clock and follows it, so that
machines whose clocks NTP or PTP keep together play in sync.")

# dpkg-shlibdeps finds liboruplay.so.N, which the player links, in the build tree: it belongs to
# no installed package, and the player's dependency on it is the component dependency above.
get_target_property(_oru_library_dir oruplay BINARY_DIR)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${_oru_library_dir}")
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${ORUPLAY_TARGET_ARCH}")
  # CPack's work folder (_CPack_Packages/ARCH) beside the native one's in the package folder.
  set(CPACK_SYSTEM_NAME "${ORUPLAY_TARGET_ARCH}")
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    "${CMAKE_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE}"
    "${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  # dpkg-shlibdeps reads the target's symbols and objdump, and looks the sysroot's libraries up
  # in the sysroot's package database.
  set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/CPackCrossEnvironment.cmake")
  file(CONFIGURE OUTPUT "${CPACK_PROJECT_CONFIG_FILE}" CONTENT
    "set(ENV{DEB_HOST_ARCH} \"${ORUPLAY_TARGET_ARCH}\")
set(ENV{DPKG_ADMINDIR} \"${CMAKE_SYSROOT}/var/lib/dpkg\")
")
endif()

include(CPack)
