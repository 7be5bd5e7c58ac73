# Cross-build for 64-bit Windows with Debian's mingw-w64 (package g++-mingw-w64-x86-64):
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# The program is linked statically, so PelmoWin.exe runs on a bare Windows (and under Wine)
# without any mingw runtime DLL next to it.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(PELMO_MINGW_TRIPLET x86_64-w64-mingw32)
# The posix-threads variant supplies std::thread and std::mutex (the test framework wants them);
# the plain name is the fallback on systems that only have one variant.
find_program(PELMO_MINGW_CXX NAMES ${PELMO_MINGW_TRIPLET}-g++-posix ${PELMO_MINGW_TRIPLET}-g++
             REQUIRED)
find_program(PELMO_MINGW_CC NAMES ${PELMO_MINGW_TRIPLET}-gcc-posix ${PELMO_MINGW_TRIPLET}-gcc)
find_program(PELMO_MINGW_WINDRES NAMES ${PELMO_MINGW_TRIPLET}-windres)
set(CMAKE_CXX_COMPILER ${PELMO_MINGW_CXX})
if(PELMO_MINGW_CC)
  set(CMAKE_C_COMPILER ${PELMO_MINGW_CC})
endif()
if(PELMO_MINGW_WINDRES)
  set(CMAKE_RC_COMPILER ${PELMO_MINGW_WINDRES})
endif()

# Headers and libraries come from the mingw sysroot only; programs (tools) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${PELMO_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# A standalone executable: C and C++ runtimes and winpthread linked in.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test programs run under Wine in a throwaway prefix (ctest and gtest_discover_tests use this).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../tools/wine/wine-run.sh)
