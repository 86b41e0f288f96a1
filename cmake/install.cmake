# What is installed: the programs and their launcher, the libraries of the container, of the readers
# and of the specification's handle interface, their headers, the CMake package with the functions
# for users' builds, and pkg-config files. Components: program, launcher, development,
# and with BUILD_SHARED_LIBS libraries.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Not below the folder of an architecture, where projects without languages do not search.
set(BFCL_CMAKE_DIR lib/cmake/bfcl-library)
set(package_dir ${PROJECT_BINARY_DIR}/cmake)        # the same package for users of the build folder
set(header_dir ${PROJECT_BINARY_DIR}/include/bfcl)
option(BUILD_SHARED_LIBS "Build the published libraries shared" OFF)

# Makes one object file of the modules' objects, in which only the symbols that match the patterns
# are global: a static library then leaves all other names to the programs that use it.
function(bfcl_join_objects object modules symbols)
  list(TRANSFORM modules REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  list(TRANSFORM symbols PREPEND --keep-global-symbol=)
  # Groups are dissolved: the linker keeps one group of a name, whoever the others belong to.
  add_custom_command(OUTPUT ${object}
    COMMAND ${CMAKE_CXX_COMPILER} -r -nostdlib -Wl,--force-group-allocation
            -o ${object}.all.o ${objects}
    COMMAND ${CMAKE_OBJCOPY} --wildcard ${symbols} ${object}.all.o ${object}
    DEPENDS ${modules} ${objects} COMMAND_EXPAND_LISTS VERBATIM)
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
endfunction()

# bfcl_publish(NAME HEADER DESCRIPTION SYMBOLS pattern... MODULES module...
#              [USES published...] [NEEDS package...])
#
# A published library: the code of modules that the program itself is linked with, static or
# shared. Only the SYMBOLS are global in it; "_Z", a length and a name is a C++ function outside
# of namespaces. USES names other published libraries, NEEDS pkg-config packages in the form
# target=package.
function(bfcl_publish name header pc_description)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SYMBOLS;MODULES;USES;NEEDS")
  set(target bfcl_${name})
  if(BUILD_SHARED_LIBS)
    list(TRANSFORM arg_MODULES REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  else()
    set(objects ${PROJECT_BINARY_DIR}/${target}.o)
    bfcl_join_objects(${objects} "${arg_MODULES}" "${arg_SYMBOLS}")
  endif()
  add_library(${target} ${objects})
  add_library(bfcl::${name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME bfcl-${name} EXPORT_NAME ${name} LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    PUBLIC_HEADER ${PROJECT_SOURCE_DIR}/src/${header})
  configure_file(${PROJECT_SOURCE_DIR}/src/${header} ${header_dir}/${header} COPYONLY)
  target_include_directories(${target} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

  set(pc_name bfcl-${name})
  set(pc_requires ${arg_USES})
  list(TRANSFORM pc_requires PREPEND bfcl-)
  set(pc_libs "-L\${libdir} -lbfcl-${name}")
  foreach(used IN LISTS arg_USES)
    target_link_libraries(${target} PUBLIC bfcl_${used})
  endforeach()
  foreach(needed IN LISTS arg_NEEDS)
    string(REGEX MATCH "(.+)=(.+)" needed ${needed})
    if(BUILD_SHARED_LIBS)
      # A user of the library does not need its build dependencies.
      target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:${CMAKE_MATCH_1}>)
    else()
      target_link_libraries(${target} PRIVATE ${CMAKE_MATCH_1})
      list(APPEND pc_requires ${CMAKE_MATCH_2})
    endif()
  endforeach()
  if(BUILD_SHARED_LIBS)
    set(map ${package_dir}/${name}.map)
    string(TOUPPER ${name} version)
    file(CONFIGURE OUTPUT ${map} CONTENT "BFCL_${version}_1 { global: ${arg_SYMBOLS}; local: *; };\n")
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:bfcl_options>)
    target_link_options(${target} PRIVATE LINKER:--version-script=${map} LINKER:--no-undefined)
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
  else()
    # A C program is not linked with the C++ library by default.
    set(libraries ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
    list(REMOVE_ITEM libraries ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
    target_link_libraries(${target} PRIVATE ${libraries})
    list(TRANSFORM libraries PREPEND " -l")
    string(APPEND pc_libs ${libraries})
  endif()

  install(TARGETS ${target} EXPORT bfcl-library-libraries
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      COMPONENT libraries NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bfcl COMPONENT development)
  list(JOIN pc_requires ", " pc_requires)
  file(RELATIVE_PATH pc_prefix /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/bfcl.pc.in ${package_dir}/${pc_name}.pc @ONLY)
  install(FILES ${package_dir}/${pc_name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

bfcl_publish(pkg pkg.h "Package files: named sections in one ELF file"
  SYMBOLS _Z[1-9][0-9]vex_pkg_* default_show_mode
  MODULES vex_pkg NEEDS PkgConfig::LIBELF=libelf)
bfcl_publish(shelver shelver.h "Readers of the text sections of component libraries"
  SYMBOLS _Z[1-9][0-9]shelver_*
  MODULES shelver USES pkg)
bfcl_publish(spec EFISpecHandle.h "Component specifications, in plain C"
  SYMBOLS load_efi_spec_file free_efi_spec_handle get_num_efi_elems get_efi_elem
    get_function_name get_module_name get_num_c_model_files get_c_model_file
    get_num_source_files get_source_file
  MODULES efi_spec vex_xml NEEDS tinyxml2::tinyxml2=tinyxml2)
target_compile_features(bfcl_pkg INTERFACE cxx_std_17)

foreach(program shelver_exe=bfcl-library component_exe=bfcl-component package_exe=bfcl-package)
  string(REGEX MATCH "(.+)=(.+)" program ${program})
  add_executable(bfcl::${CMAKE_MATCH_2} ALIAS ${CMAKE_MATCH_1})
  set_target_properties(${CMAKE_MATCH_1} PROPERTIES EXPORT_NAME ${CMAKE_MATCH_2})
  install(TARGETS ${CMAKE_MATCH_1} EXPORT bfcl-library-program RUNTIME COMPONENT program)
endforeach()
install(PROGRAMS ${PROJECT_BINARY_DIR}/bin/bfcl
  DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT launcher)

# The CMake package. The part of the program can be installed alone, to build component libraries.
configure_package_config_file(cmake/bfcl-library-config.cmake.in
  ${package_dir}/bfcl-library-config.cmake INSTALL_DESTINATION ${BFCL_CMAKE_DIR}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${package_dir}/bfcl-library-config-version.cmake
  COMPATIBILITY SameMajorVersion)
configure_file(cmake/bfcl-library-functions.cmake ${package_dir}/ COPYONLY)
install(FILES
  ${package_dir}/bfcl-library-config.cmake
  ${package_dir}/bfcl-library-config-version.cmake
  ${package_dir}/bfcl-library-functions.cmake
  DESTINATION ${BFCL_CMAKE_DIR} COMPONENT program)
foreach(part program libraries)
  export(EXPORT bfcl-library-${part} NAMESPACE bfcl::
    FILE ${package_dir}/bfcl-library-${part}.cmake)
endforeach()
install(EXPORT bfcl-library-program NAMESPACE bfcl:: DESTINATION ${BFCL_CMAKE_DIR}
  COMPONENT program)
install(EXPORT bfcl-library-libraries NAMESPACE bfcl:: DESTINATION ${BFCL_CMAKE_DIR}
  COMPONENT development)

# A project that has this one as a subfolder can call the functions too.
include(${CMAKE_CURRENT_LIST_DIR}/bfcl-library-functions.cmake)
