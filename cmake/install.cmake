# cmake --install: library, public header, programs, and the two ways in which others find them.
include(CMakePackageConfigHelpers)

install(TARGETS krvstats krvstats_static EXPORT krvstatsTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(FILES source/h/krvstats.h source/h/krvstats_ext.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

foreach(program IN ITEMS krvgwsim krvstat)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endif()
endforeach()

# krvstats.pc finds its prefix from its own place, so that an installed tree may be moved.
set(KRVSTATS_PKGCONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${KRVSTATS_PKGCONFIG_DIR}"
  OUTPUT_VARIABLE KRVSTATS_PREFIX_FROM_PKGCONFIG)
configure_file(cmake/krvstats.pc.in krvstats.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/krvstats.pc" DESTINATION "${KRVSTATS_PKGCONFIG_DIR}")

set(KRVSTATS_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/krvstats")
install(EXPORT krvstatsTargets NAMESPACE krvstats:: DESTINATION "${KRVSTATS_PACKAGE_DIR}")
configure_package_config_file(cmake/krvstatsConfig.cmake.in krvstatsConfig.cmake
  INSTALL_DESTINATION "${KRVSTATS_PACKAGE_DIR}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(krvstatsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/krvstatsConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/krvstatsConfigVersion.cmake"
  DESTINATION "${KRVSTATS_PACKAGE_DIR}")
