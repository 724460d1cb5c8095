# What `cmake --install` puts in place: the library and its header, the Fortran module as source (compiled module files
# belong to one compiler), a CMake package, a pkg-config file and the manual pages. `cpack` makes a Debian package of it.
include(CMakePackageConfigHelpers)
set(ZEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zel)

install(TARGETS zel EXPORT zel-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(ZEL_TOOLS)
  install(TARGETS zel_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES zel/include/zel.h zel/fortran/zel.f90 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT zel-targets NAMESPACE zel:: DESTINATION ${ZEL_CMAKE_DIR} FILE zel-config.cmake)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zel-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zel-config-version.cmake DESTINATION ${ZEL_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/zel.pc.in ${PROJECT_BINARY_DIR}/zel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES docs/zel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/zel.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The zel maintainers <zel@localhost>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
