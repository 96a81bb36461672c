# Debian ships Android's liblog and libcutils for Linux under <libdir>/android, with headers
# under /usr/include/android.
find_path(ANDROID_HOST_INCLUDE_DIR NAMES android/log.h PATHS /usr/include/android NO_DEFAULT_PATH)
find_library(ANDROID_LIBLOG NAMES log PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
             NO_DEFAULT_PATH REQUIRED)
find_library(ANDROID_LIBCUTILS NAMES cutils PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
             NO_DEFAULT_PATH REQUIRED)
if(NOT ANDROID_HOST_INCLUDE_DIR)
    message(FATAL_ERROR "android-liblog-dev is missing: run scripts/setup.sh")
endif()

add_library(android_log INTERFACE)
target_include_directories(android_log SYSTEM INTERFACE ${ANDROID_HOST_INCLUDE_DIR})
target_link_libraries(android_log INTERFACE ${ANDROID_LIBLOG})
# The Android libraries live outside the default search path.
target_link_options(android_log INTERFACE
    "LINKER:-rpath,/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android")

add_library(android_cutils INTERFACE)
target_link_libraries(android_cutils INTERFACE ${ANDROID_LIBCUTILS} android_log)

find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
