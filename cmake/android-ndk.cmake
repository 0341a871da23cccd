# The toolchain of the NDK in $ANDROID_NDK. The path is cached, so that the variable is needed only
# for the first configuration of a build directory.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELP_ANDROID_NDK)
set(ndk "${KELP_ANDROID_NDK}")
if(NOT ndk)
    set(ndk "$ENV{ANDROID_NDK}")
endif()
if(NOT ndk)
    message(FATAL_ERROR "ANDROID_NDK is not set. Set it to the folder of an Android NDK (r23 or "
        "newer), for example: export ANDROID_NDK=$HOME/android-ndk-r23c")
elseif(NOT EXISTS "${ndk}/build/cmake/android.toolchain.cmake")
    message(FATAL_ERROR "ANDROID_NDK is \"${ndk}\", but there is no "
        "build/cmake/android.toolchain.cmake in it. Set it to the folder of an Android NDK (r23 "
        "or newer).")
endif()
set(KELP_ANDROID_NDK "${ndk}" CACHE PATH "Folder of the Android NDK")
include("${KELP_ANDROID_NDK}/build/cmake/android.toolchain.cmake")
