# Copies the files of the folder FROM that differ into the folder TO, so that what depends on the
# others is not built again.
file(GLOB files RELATIVE "${FROM}" "${FROM}/*")
foreach(file IN LISTS files)
  file(COPY_FILE "${FROM}/${file}" "${TO}/${file}" ONLY_IF_DIFFERENT)
endforeach()
