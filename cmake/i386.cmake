# Toolchain for the host's real ABI: 32-bit x86 Linux on an x86-64 machine.
# Not a cross build to CMake: the probe below runs i386 programs natively
# when the kernel allows it.
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu)
set(PKG_CONFIG_LIBDIR /usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig)
