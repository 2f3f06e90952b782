if(NOT TARGET tessaly_node)
    return()
endif()
tessaly_test(NAME daemon_config SOURCES config.cpp LINK tessaly_daemon
    DEFINES TESSALY_NODE_CONFIG="${PROJECT_SOURCE_DIR}/localnode/daemon/tessaly-node.toml")
tessaly_test(NAME daemon_private_line SOURCES private_line.cpp LINK tessaly_daemon)
tessaly_test(NAME daemon_mailbox SOURCES mailbox.cpp ${PROJECT_SOURCE_DIR}/localnode/runtime/mailbox.cpp LINK tessaly_daemon)

add_executable(daemon_started_program ${CMAKE_CURRENT_LIST_DIR}/started.cpp)
target_include_directories(daemon_started_program PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(daemon_started_program PRIVATE tessaly GTest::gtest)
tessaly_test(NAME daemon SOURCES service_process.cpp daemon.cpp clients.cpp running.cpp alone.cpp
        ${PROJECT_SOURCE_DIR}/localnode/runtime/slots.cpp LINK tessaly
    DEFINES TESSALY_NODE_PROGRAM="$<TARGET_FILE:tessaly_node>" TESSALY_STARTED_PROGRAM="$<TARGET_FILE:daemon_started_program>")
add_dependencies(daemon tessaly_node daemon_started_program)
