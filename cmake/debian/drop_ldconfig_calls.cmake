# Run by cpack after the packages are made (CPACK_POST_BUILD_SCRIPTS). CPack
# gives a package of shared libraries postinst and postrm scripts that call
# ldconfig, with no way to turn them off; dpkg's ldconfig trigger
# (cmake/debian/triggers) does that job, so the runtime package is rebuilt
# without them.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  get_filename_component(name ${deb} NAME)
  if(name MATCHES "^${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}_.*\\.deb$")
    set(tree ${CPACK_TOPLEVEL_DIRECTORY}/runtime-rebuilt)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb --raw-extract ${deb} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip --build ${tree} ${deb}
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
  endif()
endforeach()
