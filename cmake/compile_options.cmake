# What every target of the project is compiled and linked with.
add_library(bfcl_options INTERFACE)

# Assertion messages and debug information name sources relative to the tree.
target_compile_options(bfcl_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(bfcl_options INTERFACE _GNU_SOURCE)
# gcc 12 reports false overlaps in the code of std::string (its bug 105651).
target_compile_options(bfcl_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# The published libraries make names local, which unique symbols never become.
target_compile_options(bfcl_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)

# Assertions are part of the behaviour: every build type contains them.
foreach(flags CMAKE_CXX_FLAGS_RELEASE CMAKE_CXX_FLAGS_RELWITHDEBINFO CMAKE_CXX_FLAGS_MINSIZEREL)
  string(REPLACE "-DNDEBUG" "" ${flags} "${${flags}}")
endforeach()

# Hardening of the builds that people install, as far as the compiler and the C library support it.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
check_cxx_compiler_flag(-fcf-protection BFCL_HAS_CF_PROTECTION)
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -Werror")
check_cxx_source_compiles("#include <cstdio>\nint main() {}" BFCL_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
set(hardened $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
target_compile_options(bfcl_options INTERFACE
  "$<${hardened}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=$<IF:$<BOOL:${BFCL_HAS_FORTIFY_3}>,3,2>>"
  "$<${hardened}:-fstack-protector-strong;-fstack-clash-protection>"
  "$<$<BOOL:${BFCL_HAS_CF_PROTECTION}>:-fcf-protection>")
target_compile_definitions(bfcl_options INTERFACE _GLIBCXX_ASSERTIONS)
target_link_options(bfcl_options INTERFACE $<${hardened}:LINKER:-z,relro,-z,now,-z,noexecstack>)

include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
