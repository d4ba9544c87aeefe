# What a builder may choose, and where built files stand.

# A build for another word size or machine has the library and its tests only: the programs use Debian's libraries
# of the machine's own kind.
set(KRVSTATS_PROGRAMS_DEFAULT ON)
if(CMAKE_CROSSCOMPILING OR (CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_HOST_SYSTEM_PROCESSOR MATCHES "64$"))
  set(KRVSTATS_PROGRAMS_DEFAULT OFF)
endif()
option(KRVSTATS_BUILD_PROGRAMS "Build the simulated gateway and the tools" ${KRVSTATS_PROGRAMS_DEFAULT})

option(KRVSTATS_BUILD_BENCH "Build the benchmarks" OFF)
option(KRVSTATS_BUILD_PEERS "Build the benchmarks that compare with other programs" OFF)

set(KRVSTATS_SANITIZE "" CACHE STRING "What -fsanitize= is given, for example address,undefined (empty: nothing)")
option(KRVSTATS_COVERAGE "Count which lines and branches run" OFF)
option(KRVSTATS_HARDENING "Build with the flags that a distribution hardens its packages with" ON)
option(KRVSTATS_LTO "Optimise the library at -O3 and at link time" OFF)

# Used where this build has no gateway of its own (another word size), else its own is used.
set(KRVSTATS_GATEWAY_PROGRAM "" CACHE FILEPATH "The simulated gateway that the tests talk to (empty: the one built here)")
set(KRVSTATS_TEST_LIBRARY krvstats CACHE STRING "The library that most tests link: krvstats or krvstats_static")
set(KRVSTATS_TEST_LAUNCHER "" CACHE STRING "Program that runs every test program, in one word (valgrind, an emulator)")
set(KRVSTATS_TEST_TIMEOUT 120 CACHE STRING "Seconds after which a single test has failed")

set(KRVSTATS_PRODUCT_VERSION "${PROJECT_VERSION}.0")   # in trace header and banners: four numbers
set(KRVSTATS_BUILD_LEVEL "k100")

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)   # built programs do not depend on where they were built; installed ones have none

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE)
endif()

# Trace files outgrow 2 GB and 2038 comes. Everything in a build has to agree on it, GoogleTest too.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()

# Everything in a sanitized or counted build is, or the shared parts of the standard library disagree.
if(KRVSTATS_SANITIZE)
  add_compile_options(-fsanitize=${KRVSTATS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KRVSTATS_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)   # g++ 12 says it of std::regex once that is instrumented
  endif()
endif()
if(KRVSTATS_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()
