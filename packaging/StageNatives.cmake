# Copies FILES, the native libraries, without debug information into FOLDER, and lists them in
# SHA256SUMS as sha256sum does.
foreach(file IN LISTS FILES)
  cmake_path(GET file FILENAME name)
  file(MAKE_DIRECTORY "${FOLDER}")
  execute_process(COMMAND "${STRIP}" -o "${FOLDER}/${name}" "${file}" COMMAND_ERROR_IS_FATAL ANY)
  file(SHA256 "${FOLDER}/${name}" sum)
  file(APPEND "${FOLDER}/SHA256SUMS" "${sum}  ${name}\n")
endforeach()
