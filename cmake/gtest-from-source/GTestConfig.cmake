# find_package(GTest) for builds that cannot link Debian's libgtest-dev (another architecture or
# standard library): compiles the sources from Debian's package googletest with this build's
# compiler and flags. A preset selects it with GTest_DIR.
if(NOT TARGET GTest::gtest)
    set(KELP_GTEST_SOURCE /usr/src/googletest CACHE PATH "Sources of GoogleTest")
    if(NOT EXISTS "${KELP_GTEST_SOURCE}/CMakeLists.txt")
        set(GTest_FOUND FALSE)
        set(GTest_NOT_FOUND_MESSAGE
            "no sources of GoogleTest in ${KELP_GTEST_SOURCE}: apt-get install googletest")
        return()
    endif()
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory("${KELP_GTEST_SOURCE}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
endif()
