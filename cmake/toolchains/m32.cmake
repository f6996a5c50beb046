# 32-bit x86 on a 64-bit Linux, whose kernel runs the programs (g++-12-multilib).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER g++-12)
# The headers of the kernel, which are the same for both.
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
