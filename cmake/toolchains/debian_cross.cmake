# What Debian's cross compilers have in common; the including file names the processor. Programs run under an emulator.
#
# Needs g++-<triplet>, qemu-user, googletest, libboost-dev, libcli11-dev, libfmt-dev and libxxhash-dev. All but the first
# two are of the building machine, and give nothing but sources and headers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${sorrelTriplet}-gcc)
set(CMAKE_CXX_COMPILER ${sorrelTriplet}-g++)
find_program(SORREL_EMULATOR ${sorrelEmulator} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${SORREL_EMULATOR} -L /usr/${sorrelTriplet})

set(CMAKE_FIND_ROOT_PATH /usr/${sorrelTriplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Headers that fit every processor, and nothing else of /usr/include.
set(sorrelSharedHeaders ${CMAKE_BINARY_DIR}/shared-headers)
foreach(headers boost CLI fmt xxhash.h)
    file(MAKE_DIRECTORY ${sorrelSharedHeaders})
    file(CREATE_LINK /usr/include/${headers} ${sorrelSharedHeaders}/${headers} SYMBOLIC)
endforeach()
set(Boost_INCLUDE_DIR ${sorrelSharedHeaders})
set(XXHASH_INCLUDE_DIR ${sorrelSharedHeaders})
set(CLI11_DIR ${CMAKE_CURRENT_LIST_DIR}/packages)
set(fmt_DIR ${CMAKE_CURRENT_LIST_DIR}/packages)
set(GTest_DIR ${CMAKE_CURRENT_LIST_DIR}/packages)
