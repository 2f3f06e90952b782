target_sources(tessaly_daemon PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/../runtime/slots.cpp
    ${CMAKE_CURRENT_LIST_DIR}/admission.cpp
    ${CMAKE_CURRENT_LIST_DIR}/config.cpp
    ${CMAKE_CURRENT_LIST_DIR}/connection.cpp
    ${CMAKE_CURRENT_LIST_DIR}/listener.cpp
    ${CMAKE_CURRENT_LIST_DIR}/mailbox_sender.cpp
    ${CMAKE_CURRENT_LIST_DIR}/options.cpp
    ${CMAKE_CURRENT_LIST_DIR}/outgoing.cpp
    ${CMAKE_CURRENT_LIST_DIR}/private_line.cpp
    ${CMAKE_CURRENT_LIST_DIR}/programs.cpp
    ${CMAKE_CURRENT_LIST_DIR}/server.cpp
    ${CMAKE_CURRENT_LIST_DIR}/status_report.cpp
    ${CMAKE_CURRENT_LIST_DIR}/switchboard.cpp)
