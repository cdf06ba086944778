# Cross build for arm64 with Debian's g++-aarch64-linux-gnu. Libraries for the
# target (GoogleTest, libpng, libjpeg, libyuv) come from Debian's arm64
# multiarch packages; tests run under qemu-aarch64 through CTest.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(triple aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_NM ${triple}-nm)
set(CMAKE_LIBRARY_ARCHITECTURE ${triple})

# Target files live in the cross sysroot and in the multiarch folders of /.
set(CMAKE_FIND_ROOT_PATH /usr/${triple} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${triple}/pkgconfig:/usr/share/pkgconfig)

# The emulator's loader and C library must come from one package: with the
# multiarch libc6:arm64 that the packages above pull in, the cross sysroot's
# older loader would load the newer multiarch libc.so.6 and hang in thread
# creation. The cross sysroot alone serves when there is no multiarch libc.
find_program(DOFRA_QEMU qemu-aarch64 REQUIRED)
if(EXISTS /lib/ld-linux-aarch64.so.1)
  set(DOFRA_QEMU_PREFIX /)
else()
  set(DOFRA_QEMU_PREFIX /usr/${triple})
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${DOFRA_QEMU} -L ${DOFRA_QEMU_PREFIX})
