# The runtime's own files around a scripted engine, so that the node does what a case needs. The real engine under
# the library is what the conversations of tests/e2e try.
if(NOT TARGET tessaly_runtime)
    return()
endif()

get_target_property(runtime_sources tessaly_runtime SOURCES)
add_library(tessaly_runtime_scripted OBJECT ${runtime_sources} ${CMAKE_CURRENT_LIST_DIR}/scripted_engine.cpp)
target_compile_definitions(tessaly_runtime_scripted PUBLIC TESSALY_NODE_SIDE)
target_include_directories(tessaly_runtime_scripted PUBLIC ${tessaly_include_dirs} ${CMAKE_CURRENT_LIST_DIR})

tessaly_test(NAME runtime_test LINK tessaly_runtime_scripted SOURCES
    delivery_test.cpp diagnostics_test.cpp fork_test.cpp handles_test.cpp threads_test.cpp)
tessaly_test(NAME socket_test LINK tessaly_runtime_scripted SOURCES socket_test.cpp)
tessaly_test(NAME mailbox_test LINK tessaly_runtime_scripted SOURCES mailbox_test.cpp
    ${PROJECT_SOURCE_DIR}/localnode/daemon/mailbox_sender.cpp)
tessaly_test(NAME slots_test LINK tessaly_runtime_scripted SOURCES slots_test.cpp)
