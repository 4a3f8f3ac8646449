# What Debian's dpkg-buildflags --hardening=+all asks for. Not with the sanitizers, which replace the checked
# functions of the C library and the layout of the stack by their own.
option(KESTREL_HARDENING "Build with the compiler's and the linker's protections" ON)
if(NOT KESTREL_HARDENING OR KESTREL_SANITIZE)
  return()
endif()
include(CheckCXXCompilerFlag)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "KESTREL_HAS${flag}" known)  # the last one is for x86 only
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    add_compile_options(${flag})
  endif()
endforeach()
# The checked functions need the optimiser. Some distributions define a level already.
set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
add_compile_options("$<${optimised}:-U_FORTIFY_SOURCE>" "$<${optimised}:-D_FORTIFY_SOURCE=2>")
add_link_options("LINKER:-z,relro" "LINKER:-z,now")
