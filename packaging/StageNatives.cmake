# Copies FILES, the native libraries, to FOLDER without debug information, and writes their
# checksums to SHA256SUMS in the format of sha256sum.
foreach(file IN LISTS FILES)
  cmake_path(GET file FILENAME name)
  file(MAKE_DIRECTORY "${FOLDER}")
  execute_process(COMMAND "${STRIP}" -o "${FOLDER}/${name}" "${file}" COMMAND_ERROR_IS_FATAL ANY)
  file(SHA256 "${FOLDER}/${name}" sum)
  file(APPEND "${FOLDER}/SHA256SUMS" "${sum}  ${name}\n")
endforeach()
