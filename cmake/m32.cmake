# SPDX-License-Identifier: MIT
# The 32-bit build on a 64-bit host, which runs it itself: nothing is crossed. The last option is
# for a host on which a cross compiler has driven out the package that leads to <asm/...>.
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
