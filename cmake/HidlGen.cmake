# Copyright (C) 2026 The libvircam Authors

# The package's C++ headers come from the .hal files, through Debian's build
# of the real HIDL compiler, as on a device. hidl-gen runs on the build
# machine even when the project is cross-compiled (never through
# CMAKE_CROSSCOMPILING_EMULATOR), and again whenever a .hal file changes.
#
# The packages the vendor package imports, and that Debian lacks, come from
# host-only .hal files under platform/hal (a device has the platform's own).
# Only I*.h and types.h are usable without the binder transport, so only
# they reach the include folder.
find_program(HIDL_GEN hidl-gen NO_CMAKE_FIND_ROOT_PATH REQUIRED)

set(HIDL_GEN_OUT ${CMAKE_BINARY_DIR}/hidl-gen/all)
set(HIDL_INCLUDE_DIR ${CMAKE_BINARY_DIR}/hidl-gen/include)
set(HIDL_GEN_ROOTS
    -r vendor.travik.hardware:${PROJECT_SOURCE_DIR}/interfaces
    -r android.hidl:${PROJECT_SOURCE_DIR}/platform/hal/android.hidl
    -r android.hardware:${PROJECT_SOURCE_DIR}/platform/hal/android.hardware)

set(HIDL_HEADERS)
set(HIDL_SOURCES)
set(HIDL_COMMANDS)
# hidl_package(<fqname> <folder of its .hal files>)
macro(hidl_package fqname dir)
    file(GLOB _hals CONFIGURE_DEPENDS ${dir}/*.hal)
    # android.hidl.base@1.0 -> android/hidl/base/1.0
    string(REGEX REPLACE "@.*" "" _package ${fqname})
    string(REGEX REPLACE ".*@" "" _version ${fqname})
    string(REPLACE "." "/" _path ${_package})
    set(_path ${_path}/${_version})
    set(_headers)
    foreach(_hal ${_hals})
        get_filename_component(_name ${_hal} NAME_WE)
        list(APPEND _headers ${_path}/${_name}.h)
        list(APPEND HIDL_HEADERS ${HIDL_INCLUDE_DIR}/${_path}/${_name}.h)
    endforeach()
    list(APPEND HIDL_SOURCES ${_hals})
    list(TRANSFORM _headers PREPEND ${HIDL_GEN_OUT}/ OUTPUT_VARIABLE _generated)
    list(APPEND HIDL_COMMANDS
        COMMAND ${HIDL_GEN} -o ${HIDL_GEN_OUT} -L c++-headers ${HIDL_GEN_ROOTS} ${fqname}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${HIDL_INCLUDE_DIR}/${_path}
        COMMAND ${CMAKE_COMMAND} -E copy_if_different ${_generated} ${HIDL_INCLUDE_DIR}/${_path}/)
endmacro()

hidl_package(android.hidl.base@1.0 ${PROJECT_SOURCE_DIR}/platform/hal/android.hidl/base/1.0)
hidl_package(android.hidl.manager@1.0 ${PROJECT_SOURCE_DIR}/platform/hal/android.hidl/manager/1.0)
hidl_package(android.hardware.camera.common@1.0
             ${PROJECT_SOURCE_DIR}/platform/hal/android.hardware/camera/common/1.0)
hidl_package(vendor.travik.hardware.camera.vircamera@1.0
             ${PROJECT_SOURCE_DIR}/interfaces/camera/vircamera/1.0)

add_custom_command(OUTPUT ${HIDL_HEADERS}
    ${HIDL_COMMANDS}
    DEPENDS ${HIDL_SOURCES}
    COMMENT "hidl-gen: C++ headers of the interface packages"
    VERBATIM)
add_custom_target(hidl_headers DEPENDS ${HIDL_HEADERS})
