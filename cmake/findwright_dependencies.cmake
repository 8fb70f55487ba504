# The libraries that are not the program's own, as the targets findwright_bz2, findwright_pcre2 (8-bit, with JIT),
# findwright_cli11 and findwright_gtest.
#
# A Linux build takes all of them from the system. A Windows build has no system to take them from: bzip2 and
# PCRE2 are compiled here, static, from the distribution's source packages (fetch_sources.sh puts them into
# build/sources), GoogleTest from the sources that its package installs, and CLI11 is headers only.

add_library(findwright_bz2 INTERFACE)
add_library(findwright_pcre2 INTERFACE)
add_library(findwright_cli11 INTERFACE)
add_library(findwright_gtest INTERFACE)
target_compile_definitions(findwright_pcre2 INTERFACE PCRE2_CODE_UNIT_WIDTH=8)

# One of the system's libraries that brings no CMake package of its own.
function(findwright_system_library target header library package)
  find_path(${target}_INCLUDE ${header})
  find_library(${target}_LIBRARY ${library})
  mark_as_advanced(${target}_INCLUDE ${target}_LIBRARY)
  if(NOT ${target}_INCLUDE OR NOT ${target}_LIBRARY)
    message(FATAL_ERROR "${header} or lib${library} is missing: install ${package}")
  endif()
  target_link_libraries(${target} INTERFACE ${${target}_LIBRARY})
endfunction()

if(NOT WIN32)
  findwright_system_library(findwright_bz2 bzlib.h bz2 libbz2-dev)
  findwright_system_library(findwright_pcre2 pcre2.h pcre2-8 libpcre2-dev)

  find_path(FINDWRIGHT_CLI11_INCLUDE CLI/CLI.hpp)
  mark_as_advanced(FINDWRIGHT_CLI11_INCLUDE)
  if(NOT FINDWRIGHT_CLI11_INCLUDE)
    message(FATAL_ERROR "CLI/CLI.hpp is missing: install libcli11-dev")
  endif()

  if(FINDWRIGHT_TESTS)
    find_package(GTest CONFIG REQUIRED)
    target_link_libraries(findwright_gtest INTERFACE GTest::gmock GTest::gtest)
  endif()
  return()
endif()

set(FINDWRIGHT_SOURCES ${CMAKE_SOURCE_DIR}/build/sources CACHE PATH "Folder that fetch_sources.sh filled")
set(bzip2_folder ${FINDWRIGHT_SOURCES}/bzip2)
set(pcre2_folder ${FINDWRIGHT_SOURCES}/pcre2)
if(NOT EXISTS ${bzip2_folder}/bzlib.h OR NOT EXISTS ${pcre2_folder}/src/pcre2.h.generic)
  message(FATAL_ERROR "The sources of bzip2 and PCRE2 are missing: run cmake/fetch_sources.sh ${FINDWRIGHT_SOURCES}")
endif()

set(bzip2_sources blocksort.c huffman.c crctable.c randtable.c compress.c decompress.c bzlib.c)
list(TRANSFORM bzip2_sources PREPEND ${bzip2_folder}/)
add_library(findwright_bz2_static STATIC ${bzip2_sources})
target_include_directories(findwright_bz2_static SYSTEM PUBLIC ${bzip2_folder})
target_compile_options(findwright_bz2_static PRIVATE -w)
target_link_libraries(findwright_bz2 INTERFACE findwright_bz2_static)

# PCRE2's own way to build without a configure step: its generic headers and tables under their final names.
set(pcre2_generated ${CMAKE_BINARY_DIR}/pcre2)
configure_file(${pcre2_folder}/src/pcre2.h.generic ${pcre2_generated}/pcre2.h COPYONLY)
configure_file(${pcre2_folder}/src/config.h.generic ${pcre2_generated}/config.h COPYONLY)
configure_file(${pcre2_folder}/src/pcre2_chartables.c.dist ${pcre2_generated}/pcre2_chartables.c COPYONLY)
set(pcre2_sources
  auto_possess compile config context convert dfa_match error extuni find_bracket jit_compile maketables match
  match_data newline ord2utf pattern_info script_run serialize string_utils study substitute substring tables
  ucd valid_utf xclass)
list(TRANSFORM pcre2_sources PREPEND ${pcre2_folder}/src/pcre2_)
list(TRANSFORM pcre2_sources APPEND .c)
add_library(findwright_pcre2_static STATIC ${pcre2_sources} ${pcre2_generated}/pcre2_chartables.c)
target_include_directories(findwright_pcre2_static SYSTEM PUBLIC ${pcre2_generated} PRIVATE ${pcre2_folder}/src)
target_compile_definitions(findwright_pcre2_static
  PUBLIC PCRE2_STATIC
  PRIVATE HAVE_CONFIG_H PCRE2_CODE_UNIT_WIDTH=8 SUPPORT_PCRE2_8 SUPPORT_UNICODE SUPPORT_JIT
          HAVE_MEMMOVE HAVE_STDINT_H HAVE_INTTYPES_H)
target_compile_options(findwright_pcre2_static PRIVATE -w)
target_link_libraries(findwright_pcre2 INTERFACE findwright_pcre2_static)

# CLI11 lies among the system's own headers, which the cross compiler must not see: its folder alone is copied.
if(NOT EXISTS /usr/include/CLI/CLI.hpp)
  message(FATAL_ERROR "CLI/CLI.hpp is missing: install libcli11-dev")
endif()
file(COPY /usr/include/CLI DESTINATION ${CMAKE_BINARY_DIR}/cli11)
set(FINDWRIGHT_CLI11_INCLUDE ${CMAKE_BINARY_DIR}/cli11)
target_include_directories(findwright_cli11 SYSTEM INTERFACE ${FINDWRIGHT_CLI11_INCLUDE})

if(FINDWRIGHT_TESTS)
  if(NOT EXISTS /usr/src/googletest/CMakeLists.txt)
    message(FATAL_ERROR "/usr/src/googletest is missing: install googletest")
  endif()
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  target_link_libraries(findwright_gtest INTERFACE gmock gtest)
endif()
