# oxli_target(<target>): applies the settings of every compiled target of this project.
function(oxli_target target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN")
  # Replaces the paths of this machine in what is built. Compilers differ in which of two matching
  # prefixes they replace, so no prefix here contains another.
  set(prefix_maps "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")
  foreach(folder IN ITEMS gateway utils standin jni)
    list(APPEND prefix_maps "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/${folder}=${folder}")
  endforeach()
  target_compile_options(${target} PRIVATE
    ${prefix_maps}
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wmissing-declarations
    $<$<BOOL:${OXLI_DEVELOPER}>:-Werror>)
endfunction()

# oxli_exports(<target> <version script>): exports exactly the symbols that the script lists. Binds
# calls inside the library to its own functions, so that an earlier loaded library cannot replace
# them.
function(oxli_exports target script)
  get_filename_component(path "${script}" ABSOLUTE)
  target_link_options(${target} PRIVATE
    "-Wl,--version-script=${path}" "-Wl,-z,defs" "-Wl,-Bsymbolic-functions" "-Wl,--enable-new-dtags")
  set_target_properties(${target} PROPERTIES LINK_DEPENDS "${path}")
endfunction()

# oxli_vm_program(<target>): links the library's objects into a program that starts a virtual
# machine. The program exports its symbols, because the virtual machine finds the natives by name.
function(oxli_vm_program target)
  oxli_target(${target})
  target_sources(${target} PRIVATE "${PROJECT_SOURCE_DIR}/test/support/virtual_machine.cpp")
  cmake_path(GET JAVA_JVM_LIBRARY PARENT_PATH jvm)
  set_target_properties(${target} PROPERTIES
    ENABLE_EXPORTS ON INSTALL_RPATH "$ORIGIN/../lib;${jvm}")
  target_link_libraries(${target} PRIVATE
    oxli_jni_objects oxutils_objects standin_control JNI::JVM)
endfunction()
