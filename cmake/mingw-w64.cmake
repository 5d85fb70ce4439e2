# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 (posix threads).
# Everything is linked statically against the C and C++ runtimes, so the module
# and the programs import nothing but system DLLs.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(TARNELL_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${TARNELL_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TARNELL_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${TARNELL_MINGW_PREFIX}-windres)
set(CMAKE_AR ${TARNELL_MINGW_PREFIX}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${TARNELL_MINGW_PREFIX}-ranlib CACHE FILEPATH "")
set(CMAKE_NM ${TARNELL_MINGW_PREFIX}-nm CACHE FILEPATH "")
set(CMAKE_OBJDUMP ${TARNELL_MINGW_PREFIX}-objdump CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${TARNELL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Tests and tools run under Wine (scripts/wine-run.sh picks the binary and a prefix).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh)
