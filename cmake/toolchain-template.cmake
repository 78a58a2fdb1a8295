# A template for the toolchain of a board. Copy it, replace what stands in capitals, and build:
#   cmake -S . -B build/board -DCMAKE_TOOLCHAIN_FILE=/path/to/copy.cmake -DCMAKE_BUILD_TYPE=MinSizeRel
#   cmake --build build/board --target zrmp4
# A complete one is arm-linux-gnueabihf.cmake beside this file.

# What runs on the board. Naming a system makes CMake cross-compile, even when the processor is the same.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR PROCESSOR)  # what uname -m prints there: armv7l, aarch64, mips, riscv32 ...

# The vendor's compilers, by name when they are in PATH, else by full path. C++17 is needed: GCC 7 or clang 5.
set(CMAKE_C_COMPILER TRIPLET-gcc)
set(CMAKE_CXX_COMPILER TRIPLET-g++)

# What the processor can do, for example -mcpu=cortex-a7 -mfpu=neon-vfpv4 -mfloat-abi=hard -mthumb. Floating point must
# be what the board's C library was built for. -O2 or -Os comes from the build type.
set(CMAKE_C_FLAGS_INIT "FLAGS")
set(CMAKE_CXX_FLAGS_INIT "FLAGS")

# The board's root file system as the vendor's kit brings it, with its headers and libraries. Leave the line out when
# the compiler knows its own (TRIPLET-gcc -print-sysroot tells).
set(CMAKE_SYSROOT /PATH/TO/SYSROOT)

# Programs come from the build machine, headers and libraries never do.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Optional: how to run the board's programs here, so that ctest works. QEMU's user mode does.
# set(CMAKE_CROSSCOMPILING_EMULATOR qemu-PROCESSOR-static -L ${CMAKE_SYSROOT})

# Optional: the name of the architecture in Debian packages (cpack -G DEB): armhf, armel, arm64 ...
# set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ARCHITECTURE)
