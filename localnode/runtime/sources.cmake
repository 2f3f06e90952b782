target_sources(tessaly_runtime PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/connection.cpp
    ${CMAKE_CURRENT_LIST_DIR}/deliverers.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ebcdic.cpp
    ${CMAKE_CURRENT_LIST_DIR}/events.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fork.cpp
    ${CMAKE_CURRENT_LIST_DIR}/handle_tables.cpp
    ${CMAKE_CURRENT_LIST_DIR}/host.cpp
    ${CMAKE_CURRENT_LIST_DIR}/host_embedded.cpp
    ${CMAKE_CURRENT_LIST_DIR}/host_socket.cpp
    ${CMAKE_CURRENT_LIST_DIR}/lock.cpp
    ${CMAKE_CURRENT_LIST_DIR}/logs.cpp
    ${CMAKE_CURRENT_LIST_DIR}/machine.cpp
    ${CMAKE_CURRENT_LIST_DIR}/mailbox.cpp
    ${CMAKE_CURRENT_LIST_DIR}/memory.cpp
    ${CMAKE_CURRENT_LIST_DIR}/paths.cpp
    ${CMAKE_CURRENT_LIST_DIR}/send.cpp
    ${CMAKE_CURRENT_LIST_DIR}/slots.cpp
    ${CMAKE_CURRENT_LIST_DIR}/text_file.cpp
    ${CMAKE_CURRENT_LIST_DIR}/trace_file.cpp
    ${CMAKE_CURRENT_LIST_DIR}/trace_switch.cpp
    ${CMAKE_CURRENT_LIST_DIR}/wait.cpp)

# The runtime thread lives until the process ends, so its code must stay.
target_link_options(tessaly_runtime PRIVATE LINKER:-z,nodelete)
