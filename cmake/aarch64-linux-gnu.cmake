# Copyright (C) 2026 The libvircam Authors

# Builds for the phone's architecture with Debian's cross compiler, against
# the arm64 builds of the same Debian packages (dpkg multiarch), and runs
# every program of the build under qemu-user. ./scripts/test.sh arm64
# installs what this needs and fills VIRCAM_ARM64_EXTRA_LIB_DIR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Debian's arm64 libbacktrace (under libutils) needs the arm64 7z.so, whose
# package cannot be installed beside the host's; it is unpacked here instead.
set(VIRCAM_ARM64_EXTRA_LIB_DIR "${CMAKE_BINARY_DIR}/arm64-libs/usr/lib/p7zip"
    CACHE PATH "Folder of arm64 libraries that cannot be installed beside the host's")

set(_vircam_arm64_lib_dirs
    /usr/lib/aarch64-linux-gnu/android /usr/lib/aarch64-linux-gnu ${VIRCAM_ARM64_EXTRA_LIB_DIR})
set(_vircam_rpath_link "")
foreach(dir ${_vircam_arm64_lib_dirs})
    string(APPEND _vircam_rpath_link " -Wl,-rpath-link,${dir}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_vircam_rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_vircam_rpath_link}")

# "-L /": the guest's loader and libraries are the multiarch ones the arm64
# packages install (the cross toolchain's own libc hangs every program that
# starts a thread). LD_LIBRARY_PATH reaches the guest only, and goes before
# the /usr/lib/p7zip that libbacktrace names, where the host's 7z.so lies.
# gtest discovery and ctest run the test programs through this; the
# simulator's tests pass it on in VIRCAM_SIM_LAUNCHER.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-aarch64 -L / -E LD_LIBRARY_PATH=${VIRCAM_ARM64_EXTRA_LIB_DIR})
