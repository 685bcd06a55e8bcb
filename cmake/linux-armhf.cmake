# 32-bit ARM Linux with Debian's g++-arm-linux-gnueabihf; qemu-user runs the tests. NEON is not asked
# for: on 32-bit ARM it flushes small numbers to zero, and the results would differ.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
