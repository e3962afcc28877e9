# Copyright (C) 2026 The libvircam Authors

# How Android 12's build system compiles a vendor C++ module: the global flags
# before the module's own cflags, and those it adds after them (Soong's
# cc/config/global.go and cc/compiler.go of that release). The library's own
# sources get them in every host build, so the host refuses what the device
# refuses: no exceptions, no RTTI, the global warning set under -Werror.
include(CheckCXXCompilerFlag)

set(VIRCAM_DEVICE_FLAGS_BEFORE
    # common
    -DANDROID -fmessage-length=0 -W -Wall -Wno-unused -Winit-self -Wpointer-arith
    -Wunreachable-code-loop-increment -DNDEBUG -UDEBUG -fno-exceptions -Wno-multichar -O2 -g
    -fno-strict-aliasing -Werror=date-time -Werror=pragma-pack
    -Werror=pragma-pack-suspicious-include -Werror=string-plus-int
    -Werror=unreachable-code-loop-increment
    # device
    -ffunction-sections -fdata-sections -fno-short-enums -funwind-tables -fstack-protector-strong
    -D_FORTIFY_SOURCE=2 -Wstrict-aliasing=2 -Werror=return-type -Werror=non-virtual-dtor
    -Werror=address -Werror=sequence-point -Werror=format-security
    # C++ (the module does not set rtti: true)
    -fvisibility-inlines-hidden -Wsign-promo -fno-rtti)
# Android.bp's own cflags. One word, so that CMake, which drops a repeated
# option, keeps them here, after the global -Wno-unused, as Soong orders them.
# -Wthread-safety needs the device's libc++, whose mutexes are capabilities:
# the analysis (scripts/analyze.sh) builds with it and adds the flag; with
# libstdc++ it would only complain that std::mutex is not one.
set(VIRCAM_MODULE_FLAGS "SHELL:-Wall -Wextra -Werror")
set(VIRCAM_DEVICE_FLAGS_AFTER
    -Werror=bool-operation -Werror=implicit-int-float-conversion -Werror=int-in-bool-context
    -Werror=int-to-pointer-cast -Werror=pointer-to-int-cast -Werror=string-compare
    -Werror=xor-used-as-pow -Wno-void-pointer-to-enum-cast -Wno-void-pointer-to-int-cast
    -Wno-pointer-to-int-cast)

# Clang, the device's compiler, takes the set as it is. GCC (the host's plain,
# sanitizer and arm64 builds) lacks some of clang's warnings; it gets every
# flag it knows, and the clang builds (the analysis, the fuzzers) check the
# rest.
function(vircam_usable_flags out)
    set(usable "")
    foreach(flag IN LISTS ARGN)
        if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" OR flag MATCHES "^(-[DU]|SHELL:)")
            list(APPEND usable ${flag})
            continue()
        endif()
        string(MAKE_C_IDENTIFIER "VIRCAM_HAS${flag}" var)
        check_cxx_compiler_flag("${flag}" ${var})
        if(${var})
            list(APPEND usable ${flag})
        endif()
    endforeach()
    set(${out} ${usable} PARENT_SCOPE)
endfunction()

vircam_usable_flags(VIRCAM_DEVICE_COMPILE_OPTIONS
    ${VIRCAM_DEVICE_FLAGS_BEFORE} ${VIRCAM_MODULE_FLAGS} ${VIRCAM_DEVICE_FLAGS_AFTER})
# Zero-initialised locals; clang 14 wants its own word that it knows the flag
# is going away.
set(zero_init -ftrivial-auto-var-init=zero)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    check_cxx_compiler_flag(
        "-ftrivial-auto-var-init=zero -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang"
        VIRCAM_ZERO_INIT_NEEDS_ENABLE)
    if(VIRCAM_ZERO_INIT_NEEDS_ENABLE)
        list(APPEND zero_init
             -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
    endif()
endif()
list(INSERT VIRCAM_DEVICE_COMPILE_OPTIONS 0 ${zero_init})

# The library's own objects: the device's flags, in gnu++17.
function(vircam_device_build target)
    target_compile_options(${target} PRIVATE ${VIRCAM_DEVICE_COMPILE_OPTIONS})
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS ON)
endfunction()
