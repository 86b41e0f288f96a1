# For builds that package components and make libraries of them:
#
#   bfcl_add_component(NAME SPEC spec.xml [OUTPUT file.bfco] [DEPENDS file...] [CHECK])
#   bfcl_add_library(NAME [VENDOR vendor] [VERSION version] [OUTPUT file.bfclib]
#                    [COMPONENTS component...] [OPENCL package...])
#
# Each makes a target NAME of the default build and one file, NAME.bfco or NAME.bfclib in the
# current binary folder unless OUTPUT says otherwise. The target's property BFCL_FILE is its path.
# COMPONENTS and OPENCL take targets and package files. DEPENDS names files that the build makes and
# the specification names. CHECK adds a target NAME_check, which checks the component.
include_guard(GLOBAL)
cmake_policy(VERSION 3.21) # dependency files for all generators

# The absolute path of an output file, whose folder is made.
function(_bfcl_output_path file result)
  get_filename_component(file "${file}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
  get_filename_component(folder "${file}" DIRECTORY)
  file(MAKE_DIRECTORY "${folder}")
  set(${result} "${file}" PARENT_SCOPE)
endfunction()

# Stops at arguments that nothing takes.
macro(_bfcl_check_arguments)
  if(DEFINED arg_UNPARSED_ARGUMENTS OR DEFINED arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "${CMAKE_CURRENT_FUNCTION}(${name}): cannot make sense of "
      "${arg_UNPARSED_ARGUMENTS} ${arg_KEYWORDS_MISSING_VALUES}")
  endif()
endmacro()

# A target with a command that makes one file from a specification and the files that it names.
function(_bfcl_add_command target spec output depends comment)
  set(forget "")
  if(CMAKE_GENERATOR MATCHES "Makefiles")
    # There CMake adds new dependencies to the old ones: it would wait forever for a deleted file.
    set(known "${CMAKE_CURRENT_BINARY_DIR}/CMakeFiles/${target}.dir/compiler_depend.internal")
    set(forget COMMAND "${CMAKE_COMMAND}" -E rm -f "${known}")
  endif()
  add_custom_command(OUTPUT "${output}"
    ${ARGN}
    COMMAND bfcl::bfcl-component deps "${spec}" --target "${output}" -o "${output}.d"
    ${forget}
    DEPENDS "${spec}" ${depends} bfcl::bfcl-library bfcl::bfcl-component
    DEPFILE "${output}.d"
    COMMENT "${comment}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS "${output}")
endfunction()

function(bfcl_add_component name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "CHECK" "SPEC;OUTPUT" "DEPENDS")
  _bfcl_check_arguments()
  if(NOT DEFINED arg_SPEC)
    message(FATAL_ERROR "bfcl_add_component(${name}): SPEC is missing")
  endif()
  get_filename_component(spec "${arg_SPEC}" ABSOLUTE)
  if(NOT EXISTS "${spec}")
    message(FATAL_ERROR "bfcl_add_component(${name}): no specification ${spec}")
  endif()
  if(NOT DEFINED arg_OUTPUT)
    set(arg_OUTPUT ${name}.bfco)
  endif()
  _bfcl_output_path("${arg_OUTPUT}" output)
  _bfcl_add_command(${name} "${spec}" "${output}" "${arg_DEPENDS}" "Packaging component ${name}"
    COMMAND bfcl::bfcl-library hdl-comp-pkg "${spec}" -o "${output}")
  set_target_properties(${name} PROPERTIES BFCL_FILE "${output}")
  if(arg_CHECK)
    set(stamp "${output}.checked")
    _bfcl_add_command(${name}_check "${spec}" "${stamp}" "${arg_DEPENDS}" "Checking component ${name}"
      COMMAND bfcl::bfcl-component check "${spec}"
      COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}")
  endif()
endfunction()

# The path of a package, given as a target or a file, and what to depend on for it.
function(_bfcl_find_package_file package path depends)
  if(TARGET ${package})
    get_target_property(file ${package} BFCL_FILE)
    if(NOT file)
      message(FATAL_ERROR "Target ${package} is no component: it has no property BFCL_FILE")
    endif()
    set(${depends} ${package} "${file}" PARENT_SCOPE)
  elseif(package MATCHES "\\.")
    get_filename_component(file "${package}" ABSOLUTE)
    set(${depends} "${file}" PARENT_SCOPE)
  else()
    message(FATAL_ERROR "${package} is neither a target nor the name of a package file")
  endif()
  set(${path} "${file}" PARENT_SCOPE)
endfunction()

# The library's name, vendor and version are words of one line.
function(_bfcl_check_word name what word)
  if(NOT word MATCHES "^[^- \t\r\n;][^ \t\r\n;]*$")
    message(FATAL_ERROR "bfcl_add_library(${name}): ${what} '${word}' is not one word, or begins "
      "with '-'")
  endif()
endfunction()

function(bfcl_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "VENDOR;VERSION;OUTPUT" "COMPONENTS;OPENCL")
  _bfcl_check_arguments()
  if(NOT arg_COMPONENTS AND NOT arg_OPENCL)
    message(FATAL_ERROR "bfcl_add_library(${name}): no COMPONENTS and no OPENCL packages")
  endif()
  if(NOT DEFINED arg_OUTPUT)
    set(arg_OUTPUT ${name}.bfclib)
  endif()
  _bfcl_output_path("${arg_OUTPUT}" output)
  _bfcl_check_word(${name} "the name" "${name}")
  set(options -name ${name})
  foreach(option VENDOR VERSION)
    if(DEFINED arg_${option})
      _bfcl_check_word(${name} ${option} "${arg_${option}}")
      string(TOLOWER -${option} flag)
      list(APPEND options ${flag} "${arg_${option}}")
    endif()
  endforeach()

  # A library's components are in the order of their paths. Relative ones in the build folder
  # make that order, and so the library, the same in every build folder.
  set(inputs "")
  set(depends "")
  foreach(component IN LISTS arg_COMPONENTS)
    _bfcl_find_package_file("${component}" path needed)
    list(APPEND depends ${needed})
    file(RELATIVE_PATH relative "${CMAKE_BINARY_DIR}" "${path}")
    if(NOT relative MATCHES "^\\.\\./")
      set(path "${relative}")
    endif()
    list(APPEND inputs "${path}")
  endforeach()

  # Bitcode is unpacked beside an OpenCL package: each library has its own links to them, so that
  # libraries can be made at a time and packages may be in a folder that is not writable.
  set(commands "")
  set(number 100)
  file(RELATIVE_PATH links "${CMAKE_BINARY_DIR}" "${CMAKE_CURRENT_BINARY_DIR}/${name}.opencl")
  foreach(package IN LISTS arg_OPENCL)
    _bfcl_find_package_file("${package}" path needed)
    list(APPEND depends ${needed})
    math(EXPR number "${number} + 1")
    set(link "${links}/${number}.bfco")
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/${links}")
    list(APPEND commands COMMAND "${CMAKE_COMMAND}" -E create_symlink "${path}" "${link}")
    list(APPEND inputs "${link}")
  endforeach()

  add_custom_command(OUTPUT "${output}"
    ${commands}
    COMMAND bfcl::bfcl-library create ${options} -o "${output}" ${inputs}
    DEPENDS ${depends} bfcl::bfcl-library
    WORKING_DIRECTORY "${CMAKE_BINARY_DIR}"
    COMMENT "Making library ${name}"
    VERBATIM)
  add_custom_target(${name} ALL DEPENDS "${output}")
  set_target_properties(${name} PROPERTIES BFCL_FILE "${output}")
endfunction()
