# Cross build for 64-bit Arm Linux with Debian's cross compiler and the arm64 multiarch
# packages (dpkg --add-architecture arm64); scripts/test-arm64.sh installs both. The aidl
# generator stays the host's. Tests and the programs they start run under qemu-aarch64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Multiarch: the arm64 libraries and pkg-config files live beside the host's, by triplet.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# Without -L: qemu then loads the multiarch loader (/lib/ld-linux-aarch64.so.1 from
# libc6:arm64). With -L pointing at the cross tree, that loader and the multiarch libc disagree
# and the first thread started hangs.
find_program(QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_AARCH64})
