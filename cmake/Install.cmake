# What `cmake --install` puts in place: the library and its header, the Fortran module as source (compiled module files
# belong to one compiler), a CMake package, a pkg-config file, the command, manual pages and the licence. `cpack` makes Debian
# packages of it: libzel0 for programs that run, libzel-dev for those that are built, zel with the command.
include(CMakePackageConfigHelpers)
set(ZEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zel)

install(TARGETS zel EXPORT zel-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
if(ZEL_TOOLS)
  # The command finds the library of its own prefix, wherever that was moved.
  file(RELATIVE_PATH library_from_command /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(zel_command PROPERTIES INSTALL_RPATH "$ORIGIN/${library_from_command}")
  install(TARGETS zel_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
  install(FILES docs/zel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command)
endif()
install(FILES zel/include/zel.h zel/fortran/zel.f90 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT zel-targets NAMESPACE zel:: DESTINATION ${ZEL_CMAKE_DIR} FILE zel-config.cmake COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zel-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zel-config-version.cmake DESTINATION ${ZEL_CMAKE_DIR} COMPONENT development)

# The prefix of the pkg-config file follows the file.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/zel.pc.in ${PROJECT_BINARY_DIR}/zel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES docs/zel.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)

# Debian's names and places: a package carries its terms as `copyright`.
set(debian_of_library libzel${PROJECT_VERSION_MAJOR})
set(debian_of_development libzel-dev)
set(debian_of_command zel)
set(components library development)
if(ZEL_TOOLS)
  list(APPEND components command)
endif()
foreach(component ${components})
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${debian_of_${component}} RENAME copyright
    COMPONENT ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${debian_of_${component}})
  set(CPACK_DEBIAN_${upper}_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS ON)
endforeach()
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/triggers)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${debian_of_library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION science)
set(CPACK_COMPONENT_COMMAND_DEPENDS library)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CONTACT "The zel maintainers <zel@localhost>")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/zel)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
