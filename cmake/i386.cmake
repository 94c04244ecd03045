# 32-bit x86 build on an x86-64 Debian host, against the :i386 packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_FIND_ROOT_PATH /usr/lib/i386-linux-gnu)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /usr/lib/x86_64-linux-gnu/cmake)
set(PKG_CONFIG_EXECUTABLE /usr/bin/i686-linux-gnu-pkg-config)

# Some x86-64 kernels cannot execute i386 programs ("Exec format error").
# There the tests run under Debian's qemu-user; where the kernel can, they
# run natively. A probe decides once per build tree; an emulator given on the
# command line (-DCMAKE_CROSSCOMPILING_EMULATOR=...) is used as it is.
get_property(_zelk_in_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT _zelk_in_try_compile AND NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  set(_zelk_probe_dir ${CMAKE_BINARY_DIR}/CMakeFiles/i386-probe)
  file(WRITE ${_zelk_probe_dir}/probe.c "int main(void) { return 0; }\n")
  if(CMAKE_C_COMPILER)
    set(_zelk_cc ${CMAKE_C_COMPILER})
  else()
    set(_zelk_cc cc)
  endif()
  execute_process(COMMAND ${_zelk_cc} -m32 probe.c -o probe
    WORKING_DIRECTORY ${_zelk_probe_dir} RESULT_VARIABLE _zelk_built
    OUTPUT_QUIET ERROR_QUIET)
  set(_zelk_ran 1)
  if(_zelk_built EQUAL 0)
    execute_process(COMMAND ${_zelk_probe_dir}/probe RESULT_VARIABLE _zelk_ran
      OUTPUT_QUIET ERROR_QUIET)
  endif()
  if(_zelk_ran EQUAL 0)
    set(CMAKE_CROSSCOMPILING_EMULATOR "" CACHE STRING
      "How tests run i386 programs (empty: natively, as the probe found)")
  else()
    find_program(ZELK_ELF_QEMU_I386 qemu-i386)
    if(NOT ZELK_ELF_QEMU_I386)
      message(FATAL_ERROR "This host cannot run i386 programs and qemu-i386 is missing "
                          "(Debian package qemu-user).")
    endif()
    set(CMAKE_CROSSCOMPILING_EMULATOR "${ZELK_ELF_QEMU_I386};-L;/" CACHE STRING
      "How tests run i386 programs (the probe found the host cannot)")
  endif()
endif()
