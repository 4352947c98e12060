# Cross-builds for Debian's armhf (32-bit ARMv7, hard float, NEON) with Debian's cross compiler
# (crossbuild-essential-armhf) and runs what it builds under qemu-arm (qemu-user).
#
# The target's libraries come from a sysroot of Debian armhf packages that
# scripts/make-sysroot.sh unpacks under build/sysroot-armhf (made once, shared by every build
# that uses this file); the project's FFmpeg is cross-built into build/ffmpeg-armhf.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# -Wno-psabi: GCC notes, for each std::vector<double> iterator passed by value, that GCC 7.1
# changed how such arguments are passed. Everything here is built by GCC 12, so the note can
# never point at a real mismatch.
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard -Wno-psabi")

get_filename_component(_oru_source_root "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
set(ORUPLAY_SYSROOT "${_oru_source_root}/build/sysroot-armhf")
execute_process(
  COMMAND bash "${_oru_source_root}/scripts/make-sysroot.sh" armhf "${ORUPLAY_SYSROOT}"
  RESULT_VARIABLE _oru_sysroot_result)
if(NOT _oru_sysroot_result EQUAL 0)
  message(FATAL_ERROR "Making the armhf sysroot failed (see the lines above)")
endif()
set(CMAKE_SYSROOT "${ORUPLAY_SYSROOT}")

# Headers, libraries and CMake packages come from the sysroot only; programs (ninja, the
# encoders that make test media) from the build machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${ORUPLAY_SYSROOT}")
# What FFmpeg's cross build is told (third_party/ffmpeg/build.sh), and how the package check
# lists the libraries a target binary loads, as ldd would on the device.
set(ORUPLAY_TARGET_ARCH armhf)
set(ORUPLAY_LIST_LIBRARIES ${CMAKE_CROSSCOMPILING_EMULATOR}
    "${ORUPLAY_SYSROOT}/lib/ld-linux-armhf.so.3" --list)
