# Sets keltipc_logging_items: what keltipc::ipc adds to a link line, after itself, for the logging operations that
# libkeltipc imports by name. KELTIPC_LOGGING_LIBRARY is a library target, a library's name or path, or "none" for a
# program that defines the operations itself (default: keltipc::logging).
set(keltipc_logging_library keltipc::logging)
if(KELTIPC_LOGGING_LIBRARY)
  set(keltipc_logging_library ${KELTIPC_LOGGING_LIBRARY})
endif()

# The target may be defined after this file was included, so TARGET_EXISTS is evaluated when the build files are written.
set(keltipc_logging_file ${keltipc_logging_library})
if(NOT keltipc_logging_library MATCHES "^[-/]")
  set(keltipc_logging_file "$<TARGET_EXISTS:${keltipc_logging_library}>")
  string(CONCAT keltipc_logging_file
    "$<${keltipc_logging_file}:$<TARGET_FILE:${keltipc_logging_library}>>"
    "$<$<NOT:${keltipc_logging_file}>:-l${keltipc_logging_library}>")
endif()

# --no-as-needed, because gold and lld drop a library that only another shared library needs. The flags and the file are
# one item, because CMake would remove the library from between them if the application links it too. The file is quoted,
# because CMake does not quote a flag, and a path may hold a space.
set(keltipc_logging_items
  "-Wl,--push-state,--no-as-needed,\"${keltipc_logging_file}\",--pop-state" ${keltipc_logging_library})
if(KELTIPC_LOGGING_LIBRARY STREQUAL "none")
  set(keltipc_logging_items)
endif()
