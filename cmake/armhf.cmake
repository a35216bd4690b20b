# Debian's cross compiler for 32-bit ARM with hardware floating point; libraries from multiarch.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# The tests run under it, with the libraries of a board (multiarch).
find_program(KESTRUNE_EMULATOR qemu-arm-static)
if(KESTRUNE_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${KESTRUNE_EMULATOR})
endif()
