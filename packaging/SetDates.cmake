# Run by CPack when the files are in place, because it packs them with the dates that they have.
file(GLOB_RECURSE paths LIST_DIRECTORIES true "${CPACK_TEMPORARY_DIRECTORY}/*")
execute_process(COMMAND touch --no-dereference "--date=${CPACK_OXLI_DATE}" ${paths}
  COMMAND_ERROR_IS_FATAL ANY)
