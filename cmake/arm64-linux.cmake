# 64-bit Arm Linux with Debian's cross compiler (package g++-aarch64-linux-gnu). The programs run on
# the PC under qemu-user-static.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# Libraries only from the cross compiler. CMake packages also from the PC: header-only ones fit
# every architecture.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
find_program(KELP_QEMU qemu-aarch64-static)
if(KELP_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${KELP_QEMU} -L /usr/aarch64-linux-gnu)
endif()
