# Language, warnings and the layout of the build tree, for every target of the project.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The build tree has the shape of an installed tree, so bundles are found the same way in both.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN")

set(KESTREL_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them (empty: none)")
if(KESTREL_SANITIZE)
  add_compile_options(-fsanitize=${KESTREL_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KESTREL_SANITIZE})
  if(KESTREL_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(KESTREL_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)  # so that libFuzzer sees which ways an input takes
endif()

add_compile_options(-Wall -Wextra -Wpedantic)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wno-maybe-uninitialized)  # GCC 12 sees ghosts where an optimised std::variant is moved
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)  # proves what ThreadSafety.hpp annotates
endif()
if(KESTREL_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()
