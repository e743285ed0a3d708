# The toolchain for the machine that MACHINE names: its compiler, and the emulator for its programs.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACHINE)
set(CMAKE_SYSTEM_NAME Linux)

function(use_machine processor triple emulator)
  set(CMAKE_SYSTEM_PROCESSOR ${processor} PARENT_SCOPE)
  set(CMAKE_C_COMPILER ${triple}-gcc-12 PARENT_SCOPE)
  set(CMAKE_CXX_COMPILER ${triple}-g++-12 PARENT_SCOPE)
  # A program's children inherit its environment, and with it the emulator's settings.
  set(EMULATOR /usr/bin/qemu-${emulator}-static)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${EMULATOR} -L /usr/${triple} -E QEMU_LD_PREFIX=/usr/${triple}
      -E EMULATOR=${EMULATOR} -E LD_PRELOAD=${CMAKE_BINARY_DIR}/lib/libexec.so PARENT_SCOPE)
  set(CMAKE_FIND_ROOT_PATH /usr/${triple} PARENT_SCOPE)
endfunction()

if(MACHINE STREQUAL "s390x")
  use_machine(s390x s390x-linux-gnu s390x)
elseif(MACHINE STREQUAL "armhf")
  use_machine(armv7l arm-linux-gnueabihf arm)
  add_compile_options(-Wno-psabi) # no notes about the calling conventions of older compilers
elseif(MACHINE STREQUAL "powerpc")
  use_machine(ppc powerpc-linux-gnu ppc)
elseif(MACHINE STREQUAL "i386")
  set(CMAKE_SYSTEM_PROCESSOR i686)
  set(CMAKE_C_COMPILER gcc-12)
  set(CMAKE_CXX_COMPILER g++-12)
  add_compile_options(-m32 -idirafter /usr/include/x86_64-linux-gnu) # this machine's kernel headers
  add_link_options(-m32)
else()
  message(FATAL_ERROR "unknown MACHINE '${MACHINE}'; use s390x, i386, armhf or powerpc")
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
