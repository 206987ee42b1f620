# How other projects find what is installed: by find_package(ZaroPolicy) and by pkg-config. Neither names the prefix, so
# that an installation may be moved or unpacked anywhere.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/ZaroPolicy)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZaroPolicyConfig.cmake.in ZaroPolicyConfig.cmake
  INSTALL_DESTINATION ${package_directory})
# Before 1.0 a minor version may change anything.
write_basic_package_version_file(ZaroPolicyConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZaroPolicyConfig.cmake ${PROJECT_BINARY_DIR}/ZaroPolicyConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT development)

# The files of one library: what CMake imports, and what pkg-config reads.
function(zaro_package_files library)
  install(EXPORT ${library}Targets NAMESPACE ZaroPolicy:: DESTINATION ${package_directory} COMPONENT development)
  string(TOLOWER ${library} name)
  set(pkgconfig_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH prefix_from_file ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  file(RELATIVE_PATH library_directory ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH include_directory ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_directory} COMPONENT development)
endfunction()

zaro_package_files(ZaroPolicy)
if(ZAROPOLICY_BUILD_RUNTIME)
  zaro_package_files(ZaroRuntime)
endif()
