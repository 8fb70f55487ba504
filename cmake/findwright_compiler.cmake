# Flags that all of the program's own code is compiled with.
add_library(findwright_flags INTERFACE)
target_compile_options(findwright_flags INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict> -Werror
  # Text is char everywhere; as unsigned it compares as the bytes it is.
  -funsigned-char
  # A file's name in the log, and in the program, is that of the source tree, not of the machine it was built on.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
  -fno-strict-aliasing)
if(FINDWRIGHT_SANITIZE)
  target_compile_options(findwright_flags INTERFACE
    -fsanitize=${FINDWRIGHT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(findwright_flags INTERFACE -fsanitize=${FINDWRIGHT_SANITIZE})
endif()
if(FINDWRIGHT_FUZZ)
  # Coverage that steers the fuzzer. The other compiler knows other warnings, and this build is not the one that
  # keeps the code free of them.
  target_compile_options(findwright_flags INTERFACE -fsanitize=fuzzer-no-link -Wno-error)
endif()

add_library(findwright_system INTERFACE)
if(WIN32)
  target_compile_definitions(findwright_flags INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601 PCRE2_STATIC)
  # One file that needs no library beside the system's own.
  target_link_options(findwright_flags INTERFACE -static)
  target_link_libraries(findwright_system INTERFACE ole32 shell32 shlwapi advapi32 user32 ws2_32)
else()
  find_package(Threads REQUIRED)
  target_link_libraries(findwright_system INTERFACE Threads::Threads)
endif()
