# 64-bit Windows; programs run under wine (g++-mingw-w64-x86-64-posix, wine64).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# Where the compiler keeps the libraries that its programs load, for wine to find them.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++-6.dll
  OUTPUT_VARIABLE libstdcxx OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(libstdcxx "${libstdcxx}" DIRECTORY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_COMMAND} -E env WINEDEBUG=-all WINEPREFIX=${CMAKE_BINARY_DIR}/wine
  "WINEPATH=${CMAKE_BINARY_DIR}\\;${libstdcxx}\\;/usr/x86_64-w64-mingw32/lib" /usr/lib/wine/wine64)
