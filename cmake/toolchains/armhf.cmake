# ARM with hardware floating point, where time is of 64 bits only for those who ask for it.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(sorrelTriplet arm-linux-gnueabihf)
set(sorrelEmulator qemu-arm)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # everything is built by one compiler
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
