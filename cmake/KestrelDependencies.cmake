find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS log)
find_package(Protobuf 3.21 REQUIRED)
find_package(OpenSSL 3.0 REQUIRED)
if(KESTREL_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(KESTREL_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()

# The NATS client is optional. Its own CMake package names a static library that Debian does not ship, so
# pkg-config is asked.
option(KESTREL_NATS "Build the NATS transport where the NATS client is installed" ON)
if(KESTREL_NATS)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(NATS IMPORTED_TARGET GLOBAL libnats>=3.4)
  endif()
endif()
if(TARGET PkgConfig::NATS)
  message(STATUS "NATS transport: client ${NATS_VERSION}")
  find_package(nlohmann_json 3.11 REQUIRED)  # the store answers in JSON
else()
  message(STATUS "NATS transport: not built")
endif()

# The service framework: the real package where it is installed, else the stand-in of
# platform/cppmicroservices. Both offer the target CppMicroServices::CppMicroServices.
option(KESTREL_BUNDLED_CPPMICROSERVICES "Use the built-in service framework even where CppMicroServices is installed" OFF)
if(NOT KESTREL_BUNDLED_CPPMICROSERVICES)
  find_package(CppMicroServices 3.8 QUIET)
endif()
if(CppMicroServices_FOUND)
  message(STATUS "Service framework: CppMicroServices ${CppMicroServices_VERSION}")
  if(NOT TARGET CppMicroServices::CppMicroServices)
    set_target_properties(CppMicroServices PROPERTIES IMPORTED_GLOBAL TRUE)
    add_library(CppMicroServices::CppMicroServices ALIAS CppMicroServices)
  endif()
  # It may be installed where the loader does not look.
  set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
else()
  message(STATUS "Service framework: built in")
endif()
