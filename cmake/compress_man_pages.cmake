# cpack runs this on what it is about to package: Debian wants man pages compressed.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*.[1-9]")
list(FILTER pages INCLUDE REGEX "/man/man[1-9]/")
foreach(page IN LISTS pages)
  execute_process(COMMAND gzip -9nf "${page}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
