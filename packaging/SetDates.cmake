# Sets the dates of the files to be packed, because CPack packs files with their own dates. CPack
# runs this script after it has copied the files.
file(GLOB_RECURSE paths LIST_DIRECTORIES true "${CPACK_TEMPORARY_DIRECTORY}/*")
execute_process(COMMAND touch --no-dereference "--date=${CPACK_OXLI_DATE}" ${paths}
  COMMAND_ERROR_IS_FATAL ANY)
