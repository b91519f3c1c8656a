# Cross build for 64-bit Windows with Debian's MinGW-w64 compilers (the
# posix-thread variants, which std::thread and std::mutex need), tested under
# Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KA_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KA_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KA_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KA_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KA_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's runtime (libgcc, libstdc++, winpthread) is linked into every
# binary, the DLL included, so nothing needs a MinGW DLL beside it; system
# libraries (ws2_32, kernel32) stay DLL imports.
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-static")
endforeach()

# Test programs run under Wine's 64-bit loader, in a prefix of their own
# under the build directory (cmake/windows.cmake creates it once), through
# wine_run.sh, which starts a program again when Wine failed to start it.
set(KA_WINE_LOADER /usr/lib/wine/wine64 CACHE FILEPATH "Wine's 64-bit loader")
set(KA_WINE_PREFIX ${CMAKE_BINARY_DIR}/wineprefix CACHE PATH "Wine prefix of the test runs")
set(CMAKE_CROSSCOMPILING_EMULATOR
    /usr/bin/env WINEPREFIX=${KA_WINE_PREFIX} WINEDEBUG=-all /bin/bash
    ${CMAKE_CURRENT_LIST_DIR}/wine_run.sh ${KA_WINE_LOADER})
