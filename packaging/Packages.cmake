# Makes Debian packages, one for each component, and a tar archive of all components.

# The newest version of each kind of symbol that the libraries may need. It determines the oldest
# system that they run on. A test compares it with the built files.
set(OXLI_FLOOR_JNI GLIBC_2.14 GLIBCXX_3.4.21 CXXABI_1.3.9 GCC_3.0)
set(OXLI_FLOOR_STANDIN GLIBC_2.34 GLIBCXX_3.4.29 CXXABI_1.3.9 GCC_3.0)
set(OXLI_FLOOR_JNI "${OXLI_FLOOR_JNI}" PARENT_SCOPE)
set(OXLI_FLOOR_STANDIN "${OXLI_FLOOR_STANDIN}" PARENT_SCOPE)
# The Debian packages that contain these versions. CPack cannot determine them, because no package
# contains the gateway's own liboxli.so.
set(depends_jni "libc6 (>= 2.14), libstdc++6 (>= 5), libgcc-s1 (>= 3.0)")
set(depends_standin "libc6 (>= 2.34), libstdc++6 (>= 11), libgcc-s1 (>= 3.0)")

set(CPACK_PACKAGE_NAME oxli_jni)
set(CPACK_PACKAGE_VENDOR "liboxli_jni")
set(CPACK_PACKAGE_CONTACT "liboxli_jni maintainers <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_FILE_NAME "oxli_jni-${PROJECT_VERSION}-${platform}")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development java natives)
if(NOT OXLI_GATEWAY)
  list(APPEND CPACK_COMPONENTS_ALL standin)
endif()
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_SOURCE_DIR}/CPackOptions.cmake")
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/SetDates.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/SortArchive.cmake")
set(CPACK_OXLI_DATE "${OXLI_DATE}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# oxli_deb(<component> <package> <section> <description> [FIELD <value>]...): describes the Debian
# package of a component.
function(oxli_deb component package section description)
  string(TOUPPER "${component}" upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME "${package}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  cmake_parse_arguments(PARSE_ARGV 4 arg "" "DEPENDS;RECOMMENDS;SUGGESTS;ARCHITECTURE" "")
  foreach(field IN ITEMS DEPENDS RECOMMENDS SUGGESTS ARCHITECTURE)
    if(arg_${field})
      set(CPACK_DEBIAN_${upper}_PACKAGE_${field} "${arg_${field}}" PARENT_SCOPE)
    endif()
  endforeach()
  # Debian requires a file of this name in each package.
  install(FILES "${PROJECT_SOURCE_DIR}/LICENSE"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" RENAME copyright COMPONENT ${component})
endfunction()

set(same_version "(= ${PROJECT_VERSION})")
oxli_deb(library liboxli-jni libs
  "The native library, which the Java classes load and which calls the gateway's liboxli.so."
  DEPENDS "${depends_jni}" SUGGESTS oxli-standin)
oxli_deb(development liboxli-jni-dev libdevel
  "The headers for native code in the same process."
  DEPENDS "liboxli-jni ${same_version}, liboxli-java ${same_version}")
oxli_deb(java liboxli-java java "The Java classes, their sources and their documentation."
  ARCHITECTURE all
  DEPENDS "liboxli-jni ${same_version}"
  RECOMMENDS "default-jre-headless | java11-runtime-headless")
if(NOT OXLI_GATEWAY)
  oxli_deb(standin oxli-standin misc
    "A stand-in for the gateway's liboxli.so, for development and tests."
    DEPENDS "${depends_standin}" RECOMMENDS "${OXLI_HIREDIS_PACKAGE}")
endif()
install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/liboxli-jni" COMPONENT library)

include(CPack)
