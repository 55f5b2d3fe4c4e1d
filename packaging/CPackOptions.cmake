# CPack reads this file for each kind of package.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  # No Debian package contains the jar of native libraries: oxli.jar loads the installed ones.
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL natives)
  # CPack dates the parts of a Debian package by this variable; without it, by the time of the
  # build.
  execute_process(COMMAND date "--date=${CPACK_OXLI_DATE}" +%s
    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()
