# Sets keltipc_logging_items: what keltipc::ipc brings to a link line, behind itself, for the logging operations that
# libkeltipc imports by name. KELTIPC_LOGGING_LIBRARY is a library target, a library's name or path, or "none" for a
# program that defines the operations itself; empty, it is keltipc::logging.
set(keltipc_logging_library keltipc::logging)
if(KELTIPC_LOGGING_LIBRARY)
  set(keltipc_logging_library ${KELTIPC_LOGGING_LIBRARY})
endif()

# A target may be defined later than this, so whether it is one is asked when the build files are written.
set(keltipc_logging_file ${keltipc_logging_library})
if(NOT keltipc_logging_library MATCHES "^[-/]")
  set(keltipc_logging_file "$<TARGET_EXISTS:${keltipc_logging_library}>")
  string(CONCAT keltipc_logging_file
    "$<${keltipc_logging_file}:$<TARGET_FILE:${keltipc_logging_library}>>"
    "$<$<NOT:${keltipc_logging_file}>:-l${keltipc_logging_library}>")
endif()

# --no-as-needed: gold and lld drop a library that only another shared library needs. The flags and the file are one
# item, because CMake takes a duplicate of the library out from between them where the application names it too.
set(keltipc_logging_items
  "-Wl,--push-state,--no-as-needed,${keltipc_logging_file},--pop-state" ${keltipc_logging_library})
if(KELTIPC_LOGGING_LIBRARY STREQUAL "none")
  set(keltipc_logging_items)
endif()
