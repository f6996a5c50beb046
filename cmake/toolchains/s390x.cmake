# 64-bit Linux with the most significant byte first; programs run under user-mode emulation (g++-12-s390x-linux-gnu,
# qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++-12)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x)
set(CMAKE_FIND_ROOT_PATH /usr/s390x-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
