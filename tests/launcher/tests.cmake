if(NOT TARGET tessaly_node)
    return()
endif()
add_executable(launched_program ${CMAKE_CURRENT_LIST_DIR}/launched.cpp)
target_include_directories(launched_program PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(launched_program PRIVATE tessaly GTest::gtest)
tessaly_test(NAME launcher SOURCES starting.cpp running.cpp ${PROJECT_SOURCE_DIR}/tests/daemon/daemon.cpp
        ${PROJECT_SOURCE_DIR}/tests/daemon/service_process.cpp
    LINK tessaly
    DEFINES TESSALY_NODE_PROGRAM="$<TARGET_FILE:tessaly_node>" TESSALY_PROGRAM="$<TARGET_FILE:tessaly_program>"
            TESSALY_LAUNCHED_PROGRAM="$<TARGET_FILE:launched_program>")
if(TARGET launcher)
    add_dependencies(launcher tessaly_node tessaly_program launched_program)
endif()
