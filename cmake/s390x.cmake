# Builds for s390x, a big-endian machine, on another one: clang compiles, Debian's libraries for cross building are linked,
# and QEMU's user emulator runs what was built. It looks for the loader and the libraries of its programs in the folder
# that the environment variable QEMU_LD_PREFIX names: /usr/s390x-linux-gnu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)

set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_FLAGS_INIT --target=s390x-linux-gnu)
set(CMAKE_CXX_FLAGS_INIT --target=s390x-linux-gnu)

set(CMAKE_FIND_ROOT_PATH /usr/s390x-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x-static)
