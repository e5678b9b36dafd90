# Linux on 64-bit ARM, made with Debian's cross compiler and Debian's own libraries for arm64, and run
# under QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(target aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${target}-gcc)
set(CMAKE_CXX_COMPILER ${target}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${target})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
