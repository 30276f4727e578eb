# Run by cpack once the packages' files are staged, before any package is
# made (CPACK_PRE_BUILD_SCRIPTS). Packaging stops here when the runtime
# package would not be the library package Debian expects:
# - its libraries outside /usr/lib/<triplet>, where the loader, pkg-config
#   and CMake of a multiarch or cross build look;
# - its exported symbols not exactly those of the symbols template
#   cmake/debian/symbols (scripts/abi.sh update writes it): one missing or
#   one added fails. What ships as DEBIAN/symbols is dpkg-gensymbols' output.
set(stage ${CPACK_TEMPORARY_DIRECTORY}/runtime)
if(NOT CPACK_MIVO_LIBDIR STREQUAL CPACK_MIVO_DEBIAN_LIBDIR)
  message(FATAL_ERROR "The Debian packages need the libraries in /usr/${CPACK_MIVO_DEBIAN_LIBDIR}, "
    "and this build installs them in <prefix>/${CPACK_MIVO_LIBDIR}: configure it with "
    "-DCMAKE_INSTALL_PREFIX=/usr (or -DCMAKE_INSTALL_LIBDIR=${CPACK_MIVO_DEBIAN_LIBDIR}).")
endif()

find_program(MIVO_DPKG_GENSYMBOLS dpkg-gensymbols REQUIRED)
file(REMOVE ${CPACK_MIVO_SYMBOLS})
set(work ${CPACK_TOPLEVEL_DIRECTORY}/symbols-check)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work})
# A symbol that the template gives this very version passes unnoticed when
# it vanishes (dpkg-gensymbols takes it for one never released), so the
# comparison runs as for a later version: every listed symbol must be there.
execute_process(
  COMMAND ${MIVO_DPKG_GENSYMBOLS} -c4 -p${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}
          -v${CPACK_PACKAGE_VERSION}+1 -P${stage} -I${CPACK_MIVO_SYMBOLS_TEMPLATE} -O${CPACK_MIVO_SYMBOLS}
  WORKING_DIRECTORY ${work}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT rc EQUAL 0)
  file(REMOVE ${CPACK_MIVO_SYMBOLS})
  message("${out}")
  message(FATAL_ERROR "The runtime package's libraries do not export exactly the symbols of "
    "${CPACK_MIVO_SYMBOLS_TEMPLATE} (in the diff: - as listed, + as exported). A deliberate change of the ABI "
    "goes through scripts/abi.sh update.")
endif()
