# What find_package(KestrelRemoteConnectivity) finds in an installed tree.
include(CMakePackageConfigHelpers)

set(package_directory "${CMAKE_INSTALL_LIBDIR}/cmake/KestrelRemoteConnectivity")
set(KESTREL_USES_CPPMICROSERVICES OFF)
if(NOT TARGET kestrel_cppmicroservices)
  set(KESTREL_USES_CPPMICROSERVICES ON)
endif()

install(EXPORT KestrelRemoteConnectivityTargets NAMESPACE kestrel:: DESTINATION "${package_directory}")
configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/KestrelRemoteConnectivityConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/KestrelRemoteConnectivityConfig.cmake"
  INSTALL_DESTINATION "${package_directory}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/KestrelRemoteConnectivityConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/KestrelRemoteConnectivityConfig.cmake"
  "${PROJECT_BINARY_DIR}/KestrelRemoteConnectivityConfigVersion.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/KestrelBundle.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/KestrelBundleInit.cpp.in"
  "${CMAKE_CURRENT_LIST_DIR}/KestrelExports.cmake"
  DESTINATION "${package_directory}")
