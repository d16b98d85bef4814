# Toolchain file: builds for 64-bit Windows with Debian's mingw-w64. Give the directory of a Qt for
# Windows with -DCMAKE_FIND_ROOT_PATH=DIRECTORY.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(triplet x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triplet}-g++-posix)
set(CMAKE_RC_COMPILER ${triplet}-windres)

list(APPEND CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# zlib becomes a part of the program: one file less to install.
set(ZLIB_USE_STATIC_LIBS ON)
set(ZLIB_LIBRARY /usr/${triplet}/lib/libz.a CACHE FILEPATH "The static zlib")

set(CMAKE_EXE_LINKER_FLAGS_RELEASE_INIT -s)
set(CMAKE_SHARED_LINKER_FLAGS_RELEASE_INIT -s)
