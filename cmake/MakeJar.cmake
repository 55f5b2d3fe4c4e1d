# Makes the jar JAR from the files that match PATTERN in the folders of the list FOLDERS. See
# OxliJar.cmake.
set(arguments "")
foreach(folder IN LISTS FOLDERS)
  file(GLOB_RECURSE files RELATIVE "${folder}" "${folder}/${PATTERN}")
  # Sorts the files, because the jar contains them in this order, and a folder has no order.
  list(SORT files)
  foreach(file IN LISTS files)
    string(APPEND arguments "-C \"${folder}\" \"${file}\"\n")
  endforeach()
endforeach()
if(arguments STREQUAL "")
  message(FATAL_ERROR "no file matches ${PATTERN} for ${JAR} in ${FOLDERS}")
endif()
file(WRITE "${WORK}/files.txt" "${arguments}")
file(WRITE "${WORK}/manifest.txt"
     "Implementation-Title: oxli\nImplementation-Version: ${VERSION}\n")
set(date "")
if(DATE)
  set(date "--date=${DATE}")
endif()
file(REMOVE "${JAR}")
execute_process(
  COMMAND "${JAR_TOOL}" --create "--file=${JAR}" "--manifest=${WORK}/manifest.txt" ${date}
          "@${WORK}/files.txt"
  COMMAND_ERROR_IS_FATAL ANY)
