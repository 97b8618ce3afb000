# Cross build for 64-bit ARM Linux with Debian's aarch64 toolchain and its arm64 multiarch
# libraries (protobuf, GoogleTest). Programs such as protoc are taken from the build machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Debian's multiarch layout: arm64 libraries live in /usr/lib/aarch64-linux-gnu, headers are
# shared with the build machine in /usr/include.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# ctest starts the test binaries through the emulator; what they start in turn is run by the
# kernel's binfmt_misc handler when one is registered.
find_program(TARN_QEMU_AARCH64 NAMES qemu-aarch64-static qemu-aarch64)
if(TARN_QEMU_AARCH64)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TARN_QEMU_AARCH64})
endif()
