# Read by CPack for each kind of package.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  # Debian has one file for each architecture, and the library in the file system.
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL natives)
  # CPack uses it for the parts of a Debian package, and the time of the build without it.
  execute_process(COMMAND date "--date=${CPACK_OXLI_DATE}" +%s
    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()
