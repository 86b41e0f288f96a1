# Debian packages: cpack, in a build folder configured with -DCMAKE_INSTALL_PREFIX=/usr, writes
#   bfcl-library            the programs, their CMake package with the functions for builds, the
#                           documents and the examples
#   bfcl-library-launcher   bfcl
#   libbfcl-dev             headers and libraries
#   libbfcl1                with BUILD_SHARED_LIBS, what programs need at run time
# SOURCE_DATE_EPOCH in the environment makes them reproducible.
set(BFCL_MAINTAINER "The bfcl library developers <maintainers@bfcl-library.invalid>"
  CACHE STRING "The maintainer named in the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME bfcl-library)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT "${BFCL_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/compress_man_pages.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Debian requires a licence and a changelog in each package; a plain install has none.
set(notes_dir ${PROJECT_BINARY_DIR}/packaging)
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT ${notes_dir}/changelog.Debian CONTENT
"bfcl-library (@PROJECT_VERSION@-@CPACK_DEBIAN_PACKAGE_RELEASE@) unstable; urgency=medium

  * Release @PROJECT_VERSION@.

 -- @BFCL_MAINTAINER@  @now@
")
configure_file(CHANGELOG.md ${notes_dir}/changelog COPYONLY)
configure_file(LICENSE ${notes_dir}/copyright COPYONLY)
find_program(GZIP_PROGRAM gzip)
if(GZIP_PROGRAM)
  execute_process(COMMAND ${GZIP_PROGRAM} -9nf ${notes_dir}/changelog.Debian ${notes_dir}/changelog)
endif()

# bfcl_package(COMPONENT NAME SECTION SUMMARY TEXT [SETTING=value...])
function(bfcl_package component name section summary text)
  string(TOUPPER ${component} key)
  foreach(setting ${ARGN} "PACKAGE_NAME=${name}" "PACKAGE_SECTION=${section}"
      "DESCRIPTION=${summary}\n${text}")
    string(REGEX MATCH "^([A-Z_]+)=(.*)$" setting "${setting}")
    set(CPACK_DEBIAN_${key}_${CMAKE_MATCH_1} "${CMAKE_MATCH_2}" PARENT_SCOPE)
  endforeach()
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  install(FILES ${notes_dir}/changelog.gz ${notes_dir}/changelog.Debian.gz ${notes_dir}/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
bfcl_package(program bfcl-library devel "libraries of hardware components for OpenCL on FPGAs"
  "Packages Verilog and VHDL components with their OpenCL C models, joins packages
into libraries, and looks into both. Checks, simulates and proves components
with the suggested tools."
  PACKAGE_SHLIBDEPS=ON
  "PACKAGE_SUGGESTS=verilator, ghdl, yosys, clang, pocl-opencl-icd")
bfcl_package(launcher bfcl-library-launcher devel "launcher of the bfcl kit's programs"
  "Runs the program bfcl-WORD for the command bfcl WORD, on machines that have
no launcher of the kit."
  "PACKAGE_DEPENDS=bfcl-library" PACKAGE_ARCHITECTURE=all)
if(BUILD_SHARED_LIBS)
  bfcl_package(libraries libbfcl${PROJECT_VERSION_MAJOR} libs
    "reading component packages and libraries"
    "The container of sections, the readers of libraries and the handle interface
of component specifications, as shared libraries."
    PACKAGE_SHLIBDEPS=ON PACKAGE_CONTROL_EXTRA=${notes_dir}/triggers)
  file(WRITE ${notes_dir}/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(development_needs "libbfcl${PROJECT_VERSION_MAJOR} ${same_version}")
else()
  set(development_needs "libelf-dev, libtinyxml2-dev, pkg-config")
endif()
bfcl_package(development libbfcl-dev libdevel "reading component packages and libraries (headers)"
  "Headers and libraries of the container of sections, of the readers of
libraries and of the handle interface of component specifications."
  "PACKAGE_DEPENDS=bfcl-library ${same_version}, ${development_needs}")

include(CPack)
