# Debian packages from the install rules, one per install component:
#   cpack -G DEB --config <build dir>/CPackConfig.cmake
#   libmivo-obfl-mgr1     runtime      both shared libraries and their SONAME links
#   libmivo-obfl-mgr-dev  development  headers, .so links, pkg-config file, CMake package
#   mivo-obfl-tools       tools        obfl-wire
# Dependencies on the C library (and the C++ runtime for the tool) come from
# dpkg-shlibdeps; the dev and tools packages depend on the runtime of the
# same version.
set(MIVO_DEB_RUNTIME libmivo-obfl-mgr${PROJECT_VERSION_MAJOR})
set(MIVO_DEB_DEVELOPMENT libmivo-obfl-mgr-dev)
set(MIVO_DEB_TOOLS mivo-obfl-tools)
set(_mivo_components runtime development)
if(MIVO_BUILD_TOOL)
  list(APPEND _mivo_components tools)
endif()
set(MIVO_PACKAGE_CONTACT "mivo_obfl_mgr developers <mivo-obfl-mgr@example.org>"
  CACHE STRING "Maintainer field of the Debian packages")

# Every Debian package carries its copyright file and changelog in its own
# documentation directory; the changelog compressed without a timestamp.
set(_mivo_changelog ${PROJECT_BINARY_DIR}/debian/changelog.gz)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/debian)
find_program(MIVO_GZIP gzip)
if(MIVO_GZIP)
  execute_process(COMMAND ${MIVO_GZIP} -n -9 -c ${CMAKE_CURRENT_LIST_DIR}/debian/changelog
    OUTPUT_FILE ${_mivo_changelog})
  foreach(component ${_mivo_components})
    string(TOUPPER ${component} _up)
    install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${_mivo_changelog}
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${MIVO_DEB_${_up}} COMPONENT ${component})
  endforeach()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mivo-obfl-mgr)
set(CPACK_PACKAGE_VENDOR "mivo_obfl_mgr developers")
set(CPACK_PACKAGE_CONTACT "${MIVO_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${_mivo_components})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# obfl-wire links the libraries of the runtime package, which is not
# installed while packaging: dpkg-shlibdeps reads them from the build tree.
get_target_property(_mivo_obfl_dir mivo_obfl_mgr BINARY_DIR)
get_target_property(_mivo_eid_dir mivo_tesk_eid BINARY_DIR)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${_mivo_obfl_dir} ${_mivo_eid_dir})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# Each description follows the project's one-line summary (CPack puts it first).
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${MIVO_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# dpkg refreshes the linker cache through the ldconfig trigger (CPack's own
# ldconfig calls are taken out again, debian/drop_ldconfig_calls.cmake).
# The symbols file tells packages built against these libraries the
# version that brought each symbol; dpkg-gensymbols writes it while
# packaging, from the libraries, checked against debian/symbols
# (debian/check_runtime.cmake).
set(CPACK_MIVO_SYMBOLS_TEMPLATE ${CMAKE_CURRENT_LIST_DIR}/debian/symbols)
set(CPACK_MIVO_SYMBOLS ${PROJECT_BINARY_DIR}/debian/symbols)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/debian/triggers ${CPACK_MIVO_SYMBOLS})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/check_runtime.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/drop_ldconfig_calls.cmake)
# Where a Debian package keeps libraries; a build for another prefix
# (CMAKE_INSTALL_LIBDIR plain lib/) cannot be packaged.
set(CPACK_MIVO_LIBDIR ${CMAKE_INSTALL_LIBDIR})
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(CPACK_MIVO_DEBIAN_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE})
else()
  set(CPACK_MIVO_DEBIAN_LIBDIR ${CMAKE_INSTALL_LIBDIR})
endif()
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Shared libraries.
libmivo_obfl_mgr encodes, decodes, copies and releases the 37 messages of the
on-board failure logging manager; libmivo_tesk_eid codes the entity
identifier that most of them carry. Both depend on the C library alone.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${MIVO_DEB_DEVELOPMENT})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Development files.
The C headers under /usr/include/mivo (records, enumerations, prototypes and
initialisers), the .so links, the pkg-config file mivo_obfl_mgr.pc and the
CMake package mivo_obfl_mgr (targets mivo::obfl_mgr and mivo::tesk_eid).")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${MIVO_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Command-line tool.
obfl-wire lists and describes the 37 messages and encodes and decodes them
as hexadecimal bytes from the command line.")

include(CPack)
