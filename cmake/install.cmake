# Installation: public headers under include/mivo, the two shared libraries,
# a pkg-config file and the CMake package mivo_obfl_mgr (targets
# mivo::obfl_mgr and mivo::tesk_eid).
include(CMakePackageConfigHelpers)

set(MIVO_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/mivo_obfl_mgr)

# The public headers, flattened into one directory so that one -I covers them
# all, in or out of the source tree. Named one by one: the record description
# beside them is internal and stays out.
set(MIVO_PUBLIC_HEADERS
  ${MIVO_RUNTIME_INCLUDE}/nuvex.h
  ${MIVO_RUNTIME_INCLUDE}/nuvex_encode.h
  ${MIVO_RUNTIME_INCLUDE}/nuvex_decode.h
  ${MIVO_RUNTIME_INCLUDE}/nuvex_duplicate.h
  ${MIVO_EID_INCLUDE}/mivo_tesk_eid_def.h
  ${MIVO_EID_INCLUDE}/mivo_tesk_eid_init.h
  ${MIVO_CATALOGUE_INCLUDE}/mivo_obfl_mgr_def.h
  ${MIVO_CATALOGUE_INCLUDE}/mivo_obfl_mgr_init.h)
install(FILES ${MIVO_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mivo COMPONENT development)

# mivo_library_options is linked PRIVATE into shared libraries, so it never
# reaches their link interface and needs no export of its own.
install(TARGETS mivo_tesk_eid mivo_obfl_mgr
  EXPORT mivo_obfl_mgrTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
          NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

install(EXPORT mivo_obfl_mgrTargets
  NAMESPACE mivo::
  DESTINATION ${MIVO_INSTALL_CMAKEDIR} COMPONENT development)

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/mivo_obfl_mgrConfig.cmake.in
  ${PROJECT_BINARY_DIR}/mivo_obfl_mgrConfig.cmake
  INSTALL_DESTINATION ${MIVO_INSTALL_CMAKEDIR})
# The 148 entry points and the record layouts are the ABI: a new major
# version is what breaks them.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/mivo_obfl_mgrConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/mivo_obfl_mgrConfig.cmake
  ${PROJECT_BINARY_DIR}/mivo_obfl_mgrConfigVersion.cmake
  DESTINATION ${MIVO_INSTALL_CMAKEDIR} COMPONENT development)

# The .pc file finds its prefix from its own location, so an install moved
# with `cmake --install --prefix` or DESTDIR still resolves.
file(RELATIVE_PATH MIVO_PC_TO_PREFIX
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" MIVO_PC_TO_PREFIX "${MIVO_PC_TO_PREFIX}")
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(MIVO_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(MIVO_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(MIVO_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  set(MIVO_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/mivo_obfl_mgr.pc.in
  ${PROJECT_BINARY_DIR}/mivo_obfl_mgr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/mivo_obfl_mgr.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
