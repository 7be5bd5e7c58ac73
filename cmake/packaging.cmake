# Install rules, the CMake package that lets other projects link the PelMo library, and the
# Debian package. Included from the top-level CMakeLists.txt after every target exists.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(PELMO_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Pelmo)

set(pelmo_programs PelmoWin pelmo-cli)
if(TARGET pelmo-device)
  list(APPEND pelmo_programs pelmo-device)
endif()
install(TARGETS ${pelmo_programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
# pelmo's completion, where bash-completion looks for it when `pelmo` is first completed.
if(NOT WIN32)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/bash-completion/pelmo
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT programs)
endif()

# The warning flags are the build tree's own: the library links them for its build only, so the
# export set holds the library alone.
install(TARGETS pelmo EXPORT PelmoTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

# Headers keep their folder, so "pelmo/protocol/frame.hpp" resolves against include/. The
# platform backends are private to the library's transport layer.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/pelmo
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.hpp"
  PATTERN "posix" EXCLUDE
  PATTERN "win32" EXCLUDE)
install(FILES ${PELMO_VERSION_HEADER} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelmo
  COMPONENT development)

install(EXPORT PelmoTargets NAMESPACE Pelmo:: DESTINATION ${PELMO_INSTALL_CMAKEDIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/PelmoConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/PelmoConfig.cmake
  INSTALL_DESTINATION ${PELMO_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/PelmoConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/PelmoConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/PelmoConfigVersion.cmake
  DESTINATION ${PELMO_INSTALL_CMAKEDIR} COMPONENT development)

# One Debian package holds the programs, the library and its headers (a ZIP of the same tree on
# Windows hosts).
set(CPACK_PACKAGE_NAME pelmowin)
set(CPACK_PACKAGE_VENDOR "PelmoWin developers")
set(CPACK_PACKAGE_CONTACT "PelmoWin developers <pelmowin@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Bootloader service tool for the target device over serial line or UDP, with the PelMo library")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
find_program(PELMO_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(PELMO_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)  # Depends: from the libraries the programs link
endif()
if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR DEB)
endif()
include(CPack)
