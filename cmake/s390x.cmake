# A toolchain file: builds for a processor with the other byte order, and runs the tests
# under qemu-user. Needs g++-s390x-linux-gnu, qemu-user and the libraries of architecture
# s390x.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE s390x-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x)
