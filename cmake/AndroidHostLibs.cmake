# Copyright (C) 2026 The libvircam Authors

# The AOSP libraries that Debian packages for the host (android-lib*-dev)
# keep their headers and libraries in android/ subfolders; the libraries are
# not on the loader's path, hence the rpath.
set(ANDROID_HOST_INCLUDE_DIR /usr/include/android)
set(ANDROID_HOST_LIB_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
if(NOT EXISTS ${ANDROID_HOST_LIB_DIR})
    message(FATAL_ERROR "AOSP host libraries not found in ${ANDROID_HOST_LIB_DIR}: run ./setup.sh")
endif()

foreach(lib utils log cutils base)
    find_library(ANDROID_${lib}_LIBRARY NAMES ${lib} PATHS ${ANDROID_HOST_LIB_DIR} NO_DEFAULT_PATH
                 REQUIRED)
    add_library(android::${lib} SHARED IMPORTED)
    set_target_properties(android::${lib} PROPERTIES
        IMPORTED_LOCATION ${ANDROID_${lib}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_HOST_INCLUDE_DIR})
endforeach()
set(CMAKE_BUILD_RPATH ${ANDROID_HOST_LIB_DIR})
set(CMAKE_INSTALL_RPATH ${ANDROID_HOST_LIB_DIR})

find_path(JSONCPP_INCLUDE_DIR json/json.h PATH_SUFFIXES jsoncpp REQUIRED)
find_library(JSONCPP_LIBRARY NAMES jsoncpp REQUIRED)
add_library(jsoncpp::jsoncpp SHARED IMPORTED)
set_target_properties(jsoncpp::jsoncpp PROPERTIES
    IMPORTED_LOCATION ${JSONCPP_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${JSONCPP_INCLUDE_DIR})

find_package(Threads REQUIRED)
