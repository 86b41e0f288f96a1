# The man pages, completions, the schema, the file types, the documents and the examples. Without scdoc
# there are no man pages.
include(GNUInstallDirs)

find_program(SCDOC scdoc)
if(SCDOC)
  foreach(page bfcl.1 bfcl-library.1 bfcl-component.1 bfcl-package.1
      bfcl-component-xml.5 bfclib.5 bfco.5)
    string(REGEX MATCH "[0-9]$" section ${page})
    set(source ${PROJECT_SOURCE_DIR}/share/man/${page}.scd)
    set(output ${PROJECT_BINARY_DIR}/man/${page})
    add_custom_command(OUTPUT ${output}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND sh -c "exec \"$0\" \"$1\" >\"$2\""
        ${PROJECT_SOURCE_DIR}/share/man/render.sh ${source} ${output}
      DEPENDS ${source} ${PROJECT_SOURCE_DIR}/share/man/render.sh VERBATIM)
    list(APPEND man_pages ${output})
    if(page STREQUAL "bfcl.1")
      set(component launcher)
    else()
      set(component program)
    endif()
    install(FILES ${output}
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endforeach()
  add_custom_target(man ALL DEPENDS ${man_pages})
else()
  message(STATUS "scdoc is not installed: no man pages")
endif()

# Shells look for a file by the name of the command.
foreach(command bfcl bfcl-library bfcl-component bfcl-package)
  if(command STREQUAL bfcl)
    set(component launcher)
  else()
    set(component program)
  endif()
  install(FILES share/completions/bfcl.bash RENAME ${command} COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES share/completions/bfcl.fish RENAME ${command}.fish COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()
install(FILES share/completions/_bfcl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
  COMPONENT program)

install(FILES share/hdl-component.xsd share/bfcl.magic
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bfcl-library COMPONENT program)
install(FILES share/bfcl-mime.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages COMPONENT program)

install(FILES README.md CONTRIBUTING.md CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/bfcl-library COMPONENT program)
install(DIRECTORY docs examples USE_SOURCE_PERMISSIONS
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/bfcl-library COMPONENT program
  PATTERN examples/consumer/build EXCLUDE)
