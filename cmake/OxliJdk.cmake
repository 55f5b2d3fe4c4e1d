# Finds one JDK for the compiler, the native headers and the virtual machine: that of the CMake
# variable JAVA_HOME, otherwise of the environment variable JAVA_HOME, otherwise of the javac in
# PATH. Sets JAVA_HOME and the variables of the modules Java and JNI. Every JDK compiles the code
# for Java 11.
if(JAVA_HOME)
  set(oxli_jdk "${JAVA_HOME}")
elseif(NOT "$ENV{JAVA_HOME}" STREQUAL "")
  file(TO_CMAKE_PATH "$ENV{JAVA_HOME}" oxli_jdk)
else()
  find_program(oxli_javac javac NO_CACHE REQUIRED)
  file(REAL_PATH "${oxli_javac}" oxli_javac)
  cmake_path(GET oxli_javac PARENT_PATH oxli_jdk)
  cmake_path(GET oxli_jdk PARENT_PATH oxli_jdk)
endif()
if(NOT EXISTS "${oxli_jdk}/bin/javac")
  message(FATAL_ERROR "JAVA_HOME is not a JDK: ${oxli_jdk}")
endif()

# The modules cache what they find. Deletes their cache variables if the JDK has changed.
if(DEFINED OXLI_JDK AND NOT OXLI_JDK STREQUAL oxli_jdk)
  get_cmake_property(oxli_cached CACHE_VARIABLES)
  list(FILTER oxli_cached INCLUDE REGEX "^(Java_|JAVA_(AWT|JVM|INCLUDE))")
  foreach(variable IN LISTS oxli_cached)
    unset(${variable} CACHE)
  endforeach()
endif()
set(OXLI_JDK "${oxli_jdk}" CACHE INTERNAL "The JDK of the latest configuration")
set(JAVA_HOME "${oxli_jdk}")
find_package(Java 11 REQUIRED COMPONENTS Development Runtime)
find_package(JNI REQUIRED COMPONENTS JVM)

# The compiler flags of every jar of this project.
set(CMAKE_JAVA_COMPILE_FLAGS --release 11)
if(OXLI_DEVELOPER)
  list(APPEND CMAKE_JAVA_COMPILE_FLAGS -Xlint:all -Werror)
endif()

# Compiled classes depend on this file, so that they are compiled again after the JDK has changed.
set(OXLI_JDK_STAMP "${PROJECT_BINARY_DIR}/jdk.txt")
file(CONFIGURE OUTPUT "${OXLI_JDK_STAMP}"
  CONTENT "${Java_JAVAC_EXECUTABLE} ${Java_VERSION_STRING}\n")
