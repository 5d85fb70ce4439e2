# Install rules and packages: the module, tarnell-host and the documentation under
# a prefix, laid out as
#   <prefix>/bin/tarnell-host[.exe]
#   <prefix>/lib/tarnell/modules/Tarnell.qrx   (TARNELL_INSTALL_MODULEDIR)
#   <prefix>/share/doc/tarnell/                 (README, architecture, contracts)
# CPack: a Debian package for the Linux build, a ZIP for the MinGW build, both named
# with the project's version (cpack --preset gcc-release / mingw-release).
install(TARGETS tarnell-host RUNTIME DESTINATION ${TARNELL_INSTALL_BINDIR})
# The module is loaded, never linked against: no import library in the packages.
install(TARGETS tarnell_module
        LIBRARY DESTINATION ${TARNELL_INSTALL_MODULEDIR}
        RUNTIME DESTINATION ${TARNELL_INSTALL_MODULEDIR}
        ARCHIVE DESTINATION ${TARNELL_INSTALL_MODULEDIR} EXCLUDE_FROM_ALL COMPONENT unused)
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/docs/architecture.md ${CMAKE_SOURCE_DIR}/docs/contracts.md
        DESTINATION ${TARNELL_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME tarnell)
set(CPACK_PACKAGE_VENDOR "Tarnell")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "SIMD pixel-kernel module for a host image editor, with its verification tool")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
       "Tarnell.qrx replaces chosen routines of the host's pixel suites with SSE2 to AVX2 code giving\n"
       "bit-identical results. tarnell-host loads it into a reference host to report, verify and bench it.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME tarnell-${PROJECT_VERSION}-win64)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # tarnell_<version>_amd64.deb
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Tarnell developers")
  set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
  # The tool's C and C++ runtime dependencies, from the binaries themselves.
  find_program(TARNELL_DPKG_SHLIBDEPS dpkg-shlibdeps)
  if(TARNELL_DPKG_SHLIBDEPS)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  else()
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
  endif()
endif()
include(CPack)
