# Copies the files of the folder FROM to the folder TO, except for those that are the same there, so
# that nothing that depends on these is built again.
file(GLOB files RELATIVE "${FROM}" "${FROM}/*")
foreach(file IN LISTS files)
  file(COPY_FILE "${FROM}/${file}" "${TO}/${file}" ONLY_IF_DIFFERENT)
endforeach()
