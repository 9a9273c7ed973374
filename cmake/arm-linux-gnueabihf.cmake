# Cross build for the camera's processor family: 32-bit ARM Linux, hard float,
# with Debian's cross compiler. Target libraries (json-c, libc, libstdc++)
# come from Debian's armhf packages installed beside the host's (multiarch);
# the test programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ISPIAAS_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${ISPIAAS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ISPIAAS_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ISPIAAS_TRIPLE})

# pkg-config answers for the target's json-c, never the host's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${ISPIAAS_TRIPLE}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# The programs run on Debian's armhf runtime (libc6, libstdc++6, json-c from
# the multiarch packages), which the host's loader paths already reach. The
# cross toolchain's own copy of libc under /usr/<triple> is for linking only:
# threads of a program loaded with it crash under qemu-user.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
