find_package(Threads REQUIRED)

# Flags shared by every target: bit-exact floating point (no contraction, never
# fast-math) and a strict warning set.
add_library(tarnell_common_flags INTERFACE)
target_compile_options(tarnell_common_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align
  -ffp-contract=off -fno-fast-math
  $<$<BOOL:${TARNELL_WERROR}>:-Werror>)
if(TARNELL_SANITIZE)
  target_compile_options(tarnell_common_flags INTERFACE -fsanitize=${TARNELL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(tarnell_common_flags INTERFACE -fsanitize=${TARNELL_SANITIZE})
endif()

if(TARNELL_FUZZ)
  # Coverage for the fuzzer in everything a fuzz target links.
  target_compile_options(tarnell_common_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The module is built for the x86-64 baseline; wider levels are added per file.
add_library(tarnell_module_flags INTERFACE)
target_link_libraries(tarnell_module_flags INTERFACE tarnell_common_flags)
target_compile_options(tarnell_module_flags INTERFACE -march=x86-64 -mtune=generic
  -fvisibility=hidden -fvisibility-inlines-hidden)
target_include_directories(tarnell_module_flags INTERFACE ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/src)
