# What it takes to pack bundles: shared objects that the service framework loads at run time. Which framework
# that is, the real one or the stand-in, is known here and nowhere else. Part of the installed package too.
include(GNUInstallDirs)
include("${CMAKE_CURRENT_LIST_DIR}/KestrelExports.cmake")

# The symbol that tells a bundle from other shared objects before any of its code runs. CppMicroServices needs
# none: it reads the manifest of a bundle before it loads it.
set(KESTREL_BUNDLE_MARKER "")
if(TARGET kestrel::cppmicroservices)
  set(KESTREL_BUNDLE_MARKER "cppmicroservices_bundle_symbolic_name")
endif()

# Declares a bundle.
#   kestrel_add_bundle(<target> SYMBOLIC_NAME <name> DIRECTORY <dir> SOURCES file... [LIBS target...] [NO_INSTALL])
# The symbolic name is a C identifier. The bundle lies in bin/osarch64/microservices/eps/platformservices/<dir>,
# in the build tree and in the installed one. With NO_INSTALL it is meant for tests and lies in
# tests/bundles/<dir> of the build tree. For the stand-in a bundle exports what the framework looks up, whatever
# else its sources export; what CppMicroServices looks up is known to its own functions.
function(kestrel_add_bundle target)
  cmake_parse_arguments(ARG "NO_INSTALL" "SYMBOLIC_NAME;DIRECTORY" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_SYMBOLIC_NAME MATCHES "^[A-Za-z_][A-Za-z0-9_]*$" OR NOT ARG_DIRECTORY OR NOT ARG_SOURCES)
    message(FATAL_ERROR "kestrel_add_bundle(${target}): expected a SYMBOLIC_NAME that is a C identifier, "
      "a DIRECTORY and SOURCES; got \"${ARG_SYMBOLIC_NAME}\", \"${ARG_DIRECTORY}\" and \"${ARG_SOURCES}\"")
  endif()

  add_library(${target} SHARED ${ARG_SOURCES})
  target_compile_features(${target} PRIVATE cxx_std_20)
  target_compile_definitions(${target} PRIVATE US_BUNDLE_NAME=${ARG_SYMBOLIC_NAME})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS})
  # Objects of the bundle may outlive the framework, so its code must stay in the process.
  target_link_options(${target} PRIVATE "LINKER:-z,nodelete")
  if(TARGET kestrel::cppmicroservices)
    target_link_libraries(${target} PRIVATE kestrel::cppmicroservices)
    _kestrel_pack_for_stand_in(${target} ${ARG_SYMBOLIC_NAME})
    kestrel_export_symbols(${target} "cppmicroservices_*")
  else()
    target_link_libraries(${target} PRIVATE CppMicroServices::CppMicroServices)
    _kestrel_pack_for_cppmicroservices(${target} ${ARG_SYMBOLIC_NAME})
  endif()

  if(ARG_NO_INSTALL)
    set_target_properties(${target} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests/bundles/${ARG_DIRECTORY}")
    return()
  endif()
  set(directory "bin/osarch64/microservices/eps/platformservices/${ARG_DIRECTORY}")
  file(RELATIVE_PATH to_libraries "/${directory}" "/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(${target} PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${directory}"
    INSTALL_RPATH "$ORIGIN/${to_libraries}"
    INSTALL_RPATH_USE_LINK_PATH ON)  # the framework may be installed elsewhere
  install(TARGETS ${target} LIBRARY DESTINATION "${directory}")
endfunction()

function(_kestrel_pack_for_stand_in target name)
  set(US_BUNDLE_NAME ${name})
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}-bundle/BundleInit.cpp")
  configure_file("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/KestrelBundleInit.cpp.in" "${source}" @ONLY)
  target_sources(${target} PRIVATE "${source}")
endfunction()

function(_kestrel_pack_for_cppmicroservices target name)
  set_target_properties(${target} PROPERTIES US_BUNDLE_NAME ${name})
  set(sources)
  usFunctionGenerateBundleInit(TARGET ${target} OUT sources)
  # Appended resources would be lost when the installed bundle is stripped.
  set(mode APPEND)
  if(US_RESOURCE_LINKING_AVAILABLE)
    set(mode LINK)
  endif()
  usFunctionGetResourceSource(TARGET ${target} OUT sources ${mode})
  target_sources(${target} PRIVATE ${sources})
  set(manifest_directory "${CMAKE_CURRENT_BINARY_DIR}/${target}-bundle")
  file(WRITE "${manifest_directory}/manifest.json"
    "{\n  \"bundle.symbolic_name\": \"${name}\",\n  \"bundle.activator\": true\n}\n")
  usFunctionEmbedResources(TARGET ${target} WORKING_DIRECTORY "${manifest_directory}" FILES manifest.json ${mode})
endfunction()
