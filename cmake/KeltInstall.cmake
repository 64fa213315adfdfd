# The development files: headers, CMake package, pkg-config files. Nothing names a library folder.
include(CMakePackageConfigHelpers)

set(kelt_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/keltipc)

install(TARGETS keltipc_ipc keltipc_logging EXPORT keltipcTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/ipc include/logging DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keltipc COMPONENT development)

install(EXPORT keltipcTargets NAMESPACE keltipc:: DESTINATION ${kelt_cmake_dir} COMPONENT development)
# For find_package with keltipc_DIR set to the build folder.
if(PROJECT_IS_TOP_LEVEL)
  export(EXPORT keltipcTargets NAMESPACE keltipc::)
endif()
configure_package_config_file(cmake/keltipcConfig.cmake.in keltipcConfig.cmake
  INSTALL_DESTINATION ${kelt_cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(keltipcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/keltipcConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/keltipcConfigVersion.cmake
  DESTINATION ${kelt_cmake_dir} COMPONENT development)

# An absolute folder stays as it is.
cmake_path(APPEND kelt_pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND kelt_pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
foreach(library keltipc keltlogging)
  configure_file(cmake/${library}.pc.in ${library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
