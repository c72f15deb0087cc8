# 32-bit big-endian MIPS: the other byte order, so that every multi-byte field
# of a section is read the portable way. Uses Debian's cross compiler
# (g++-mips-linux-gnu); test programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(OSTREL_CROSS_TRIPLE mips-linux-gnu)
set(OSTREL_CROSS_QEMU qemu-mips)
set(OSTREL_CROSS_CPU MIPS)
include(${CMAKE_CURRENT_LIST_DIR}/OstrelCross.cmake)

# 32-bit MIPS has no 64-bit atomic instructions: std::atomic of a 64-bit type
# compiles to calls into libatomic, which every program may then need.
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT "-latomic")
