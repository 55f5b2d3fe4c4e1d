# Sets OXLI_DATE, the date of all packaged files, so that the same sources result in the same bytes:
# the environment variable SOURCE_DATE_EPOCH, in seconds since 1970-01-01 UTC; without it, the date
# of the latest version in CHANGELOG.md.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  file(STRINGS "${PROJECT_SOURCE_DIR}/CHANGELOG.md" oxli_dated
    REGEX "^## .* [0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]$" LIMIT_COUNT 1)
  string(REGEX MATCH "[0-9-]+$" oxli_date "${oxli_dated}")
  set(OXLI_DATE "${oxli_date}T00:00:00Z")
else()
  string(TIMESTAMP OXLI_DATE "%Y-%m-%dT%H:%M:%SZ" UTC)
endif()
# The jar tool of JDKs before 17 always stores the time of the build.
set(oxli_jar_date "")
if(Java_VERSION VERSION_GREATER_EQUAL 17)
  set(oxli_jar_date "${OXLI_DATE}")
endif()
# Jars depend on this file, so that they are made again after the date has changed.
set(OXLI_DATE_STAMP "${PROJECT_BINARY_DIR}/date.txt")
file(CONFIGURE OUTPUT "${OXLI_DATE_STAMP}" CONTENT "${oxli_jar_date}\n")

# oxli_jar(<target> <jar> FOLDERS <folder>... DEPENDS <file>... [PATTERN <pattern>]):
# makes a jar of the files in the folders whose names match the pattern (default: *), sorted by
# name, with the version in its manifest. INCLUDE_JARS of add_jar accepts the target.
function(oxli_jar target jar)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "PATTERN" "FOLDERS;DEPENDS")
  if(NOT arg_PATTERN)
    set(arg_PATTERN "*")
  endif()
  cmake_path(GET jar FILENAME name)
  add_custom_command(OUTPUT "${jar}"
    COMMAND "${CMAKE_COMMAND}" "-DJAR_TOOL=${Java_JAR_EXECUTABLE}" "-DJAR=${jar}"
            "-DFOLDERS=${arg_FOLDERS}" "-DPATTERN=${arg_PATTERN}" "-DDATE=${oxli_jar_date}"
            "-DWORK=${CMAKE_CURRENT_BINARY_DIR}/${target}.dir" "-DVERSION=${PROJECT_VERSION}"
            -P "${PROJECT_SOURCE_DIR}/cmake/MakeJar.cmake"
    DEPENDS ${arg_DEPENDS} "${OXLI_DATE_STAMP}" "${PROJECT_SOURCE_DIR}/cmake/MakeJar.cmake"
    COMMENT "Creating ${name}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${jar}")
  set_target_properties(${target} PROPERTIES JAR_FILE "${jar}" INSTALL_FILES "${jar}")
endfunction()
