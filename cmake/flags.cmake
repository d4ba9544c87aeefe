# Compiler and linker flags of our own code, for everything below the directory that includes this file.

add_compile_options(-Wall -Wextra -Wconversion -Wshadow)

if(KRVSTATS_HARDENING)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86|AMD64)$")
    add_compile_options(-fcf-protection)
  endif()
  add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  # Fortified calls need an optimising compiler, and hide from a sanitizer what it watches.
  if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT KRVSTATS_SANITIZE)
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
endif()
