include(KestrelExports)

# Declares a library of the platform layer: target kestrel_<folder>, alias kestrel::<folder>.
#   kestrel_platform_library(<folder> [INTERFACE] [SOURCES file...] [PUBLIC target...] [PRIVATE target...]
#                            [EXPORTS <namespace> [pattern...]])
# The folder holds its public headers in include/ and its sources in src/. Unless EXPORTS says otherwise, the
# library exports the namespace kestrel::<folder>.
function(kestrel_platform_library folder)
  cmake_parse_arguments(ARG "INTERFACE" "" "SOURCES;PUBLIC;PRIVATE;EXPORTS" ${ARGN})
  set(target kestrel_${folder})
  if(ARG_INTERFACE)
    add_library(${target} INTERFACE)
    set(scope INTERFACE)
  else()
    add_library(${target} SHARED ${ARG_SOURCES})
    set(scope PUBLIC)
    target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}/src")
    target_link_libraries(${target} PRIVATE ${ARG_PRIVATE})
    if(NOT ARG_EXPORTS)
      set(ARG_EXPORTS "kestrel::${folder}")
    endif()
    kestrel_export_namespace(${target} ${ARG_EXPORTS})
    set_target_properties(${target} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  endif()
  add_library(kestrel::${folder} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${folder})
  target_compile_features(${target} ${scope} cxx_std_20)
  target_include_directories(${target} ${scope}
    "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
  target_link_libraries(${target} ${scope} ${ARG_PUBLIC})
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(TARGETS ${target} EXPORT KestrelRemoteConnectivityTargets)
endfunction()

# Declares a test program and registers it.
#   kestrel_test(<name> SOURCES file... [LIBS target...] [TIMEOUT seconds] [LABELS label...])
function(kestrel_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}"
    ENVIRONMENT "${KESTREL_TEST_ENVIRONMENT}")
endfunction()
