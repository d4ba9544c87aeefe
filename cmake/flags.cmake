# Compiler and linker flags of our own code, for everything below the directory that includes this file.

add_compile_options(-Wall -Wextra -Wconversion -Wshadow)

# What is built does not show where: all paths in debugging information and texts begin at the root of the sources. (The
# compiler is given absolute and relative ones.) Counters of coverage have to find their files again.
if(NOT KRVSTATS_COVERAGE)
  cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY "${PROJECT_BINARY_DIR}" OUTPUT_VARIABLE KRVSTATS_SOURCE_FROM_BUILD)
  foreach(folder IN ITEMS "${PROJECT_SOURCE_DIR}" "${KRVSTATS_SOURCE_FROM_BUILD}" "${PROJECT_BINARY_DIR}")
    add_compile_options("-ffile-prefix-map=${folder}=.")
  endforeach()
endif()

# Fortified calls need an optimising compiler, and hide from a sanitizer what it watches.
set(KRVSTATS_FORTIFY OFF)
if(KRVSTATS_HARDENING AND CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT KRVSTATS_SANITIZE)
  set(KRVSTATS_FORTIFY ON)
endif()

if(KRVSTATS_HARDENING)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86|AMD64)$")
    add_compile_options(-fcf-protection)
  endif()
  add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

  # Programs get a random address as libraries do.
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()
if(KRVSTATS_FORTIFY)
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
