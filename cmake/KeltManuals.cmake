# Manual pages and completions of the tools. The pages need scdoc; without it the rest is installed all the same.
find_program(KELTIPC_SCDOC scdoc)
mark_as_advanced(KELTIPC_SCDOC)

function(kelt_manual_page source)
  cmake_path(GET source STEM LAST_ONLY page)
  set(made ${PROJECT_BINARY_DIR}/man/${page})
  add_custom_command(OUTPUT ${made} COMMAND ${KELTIPC_SCDOC} < ${source} > ${made} DEPENDS ${source} VERBATIM)
  add_custom_target(manual_${page} ALL DEPENDS ${made})
  install(FILES ${made} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()

if(KELTIPC_SCDOC)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
  kelt_manual_page(${PROJECT_SOURCE_DIR}/docs/man/keltipc.1.scd)
  kelt_manual_page(${PROJECT_SOURCE_DIR}/docs/man/keltipc-portsim.1.scd)
else()
  message(STATUS "No scdoc: the manual pages are left out")
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/completion/bash/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/completion/zsh/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tools)
