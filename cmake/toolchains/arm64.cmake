# ARM of 64 bits.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(sorrelTriplet aarch64-linux-gnu)
set(sorrelEmulator qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
