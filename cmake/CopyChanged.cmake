# Copies each file of the folder FROM to the folder TO if its content differs there, so that what
# depends on unchanged files is not built again.
file(GLOB files RELATIVE "${FROM}" "${FROM}/*")
foreach(file IN LISTS files)
  file(COPY_FILE "${FROM}/${file}" "${TO}/${file}" ONLY_IF_DIFFERENT)
endforeach()
