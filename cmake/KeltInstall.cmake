# Everything that is installed.
include(CMakePackageConfigHelpers)

install(TARGETS keltipc_ipc keltipc_logging EXPORT keltipcTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY include/ipc include/logging DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keltipc COMPONENT development)

set(kelt_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/keltipc)
install(EXPORT keltipcTargets NAMESPACE keltipc:: DESTINATION ${kelt_cmake_dir} COMPONENT development)
configure_package_config_file(cmake/keltipcConfig.cmake.in keltipcConfig.cmake
  INSTALL_DESTINATION ${kelt_cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(keltipcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/keltipcConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/keltipcConfigVersion.cmake
  cmake/keltipcLogging.cmake DESTINATION ${kelt_cmake_dir} COMPONENT development)
# Lets find_package find the build folder through keltipc_DIR.
if(kelt_is_top_level)
  export(EXPORT keltipcTargets NAMESPACE keltipc::)
  configure_file(cmake/keltipcLogging.cmake keltipcLogging.cmake COPYONLY)
endif()

# Folders are below the prefix, unless they are absolute.
foreach(folder LIBDIR INCLUDEDIR)
  set(kelt_pc_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    set(kelt_pc_${folder} "${CMAKE_INSTALL_${folder}}")
  endif()
endforeach()
# The prefix is written at installation, which may use another one than was configured. Deliberate: ${pcfiledir} is not
# used, because pkg-config 0.29 would put the sysroot before it twice.
set(KELT_PREFIX "@KELT_PREFIX@")
foreach(library keltipc keltlogging)
  configure_file(cmake/${library}.pc.in ${library}.pc.in @ONLY)
  set(made ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc)
  install(CODE "get_filename_component(KELT_PREFIX \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
configure_file(\"${made}.in\" \"${made}\" @ONLY)" COMPONENT development)
  install(FILES ${made} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

if(NOT TARGET keltipc_tool)
  return()
endif()

# The tools find their libraries under any prefix. With CMAKE_SKIP_INSTALL_RPATH they are found in the system's folders only.
file(RELATIVE_PATH kelt_to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(keltipc_tool keltipc_portsim PROPERTIES INSTALL_RPATH "$ORIGIN/${kelt_to_libraries}")
install(TARGETS keltipc_tool keltipc_portsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(DIRECTORY tools/completion/bash/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
install(DIRECTORY tools/completion/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tools)

find_program(KELTIPC_SCDOC scdoc)
mark_as_advanced(KELTIPC_SCDOC)
if(NOT KELTIPC_SCDOC)
  message(STATUS "Not found: scdoc. The manual pages are left out")
  return()
endif()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
foreach(page keltipc.1 keltipc-portsim.1)
  set(source ${PROJECT_SOURCE_DIR}/docs/man/${page}.scd)
  set(made ${PROJECT_BINARY_DIR}/man/${page})
  add_custom_command(OUTPUT ${made} COMMAND ${KELTIPC_SCDOC} < ${source} > ${made} DEPENDS ${source} VERBATIM)
  add_custom_target(manual_${page} ALL DEPENDS ${made})
  install(FILES ${made} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endforeach()
