# Makes the tar archive again, independently of the machine: CPack packs files in the order of the
# file system, with the user who runs it as the owner, and with the time of the build. CPack runs
# this script after it has made the packages.
if(CPACK_GENERATOR STREQUAL "TGZ")
  cmake_path(GET CPACK_TEMPORARY_DIRECTORY PARENT_PATH folder)
  execute_process(
    COMMAND tar --create "--file=${CPACK_PACKAGE_FILES}" --use-compress-program=gzip\ -9n
            --sort=name --format=gnu --owner=root:0 --group=root:0 "--mtime=${CPACK_OXLI_DATE}"
            "--directory=${folder}" "${CPACK_PACKAGE_FILE_NAME}"
    COMMAND_ERROR_IS_FATAL ANY)
endif()
