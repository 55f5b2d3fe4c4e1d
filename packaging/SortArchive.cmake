# Run by CPack when the packages are made. Makes the tar archive again: CPack packs files in the
# order of the file system, as whoever runs it, and with the time of the build.
if(CPACK_GENERATOR STREQUAL "TGZ")
  cmake_path(GET CPACK_TEMPORARY_DIRECTORY PARENT_PATH folder)
  execute_process(
    COMMAND tar --create "--file=${CPACK_PACKAGE_FILES}" --use-compress-program=gzip\ -9n
            --sort=name --format=gnu --owner=root:0 --group=root:0 "--mtime=${CPACK_OXLI_DATE}"
            "--directory=${folder}" "${CPACK_PACKAGE_FILE_NAME}"
    COMMAND_ERROR_IS_FATAL ANY)
endif()
