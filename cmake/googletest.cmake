# GoogleTest, built from Debian's copy of its sources: so there is one for every word size and sanitizer.
include(GoogleTest)

set(KRVSTATS_GOOGLETEST_SOURCES /usr/src/googletest CACHE PATH "Sources of GoogleTest")
if(NOT EXISTS "${KRVSTATS_GOOGLETEST_SOURCES}/CMakeLists.txt")
  message(FATAL_ERROR "No sources of GoogleTest in ${KRVSTATS_GOOGLETEST_SOURCES}: install the package googletest, "
                      "or configure with -DBUILD_TESTING=OFF")
endif()

block()
  set(BUILD_SHARED_LIBS OFF)
  set(INSTALL_GTEST OFF)
  set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)
  add_subdirectory("${KRVSTATS_GOOGLETEST_SOURCES}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
endblock()
