# The library over the runtime's own files, so that things can be made to go wrong in there.
if(NOT TARGET tessaly_runtime OR NOT TARGET tessaly_static OR NOT TARGET tessaly_node OR NOT TESSALY_HAS_GOOGLETEST)
    return()
endif()

get_target_property(runtime_sources tessaly_runtime SOURCES)
add_library(tessaly_runtime_disturbed OBJECT ${runtime_sources} ${CMAKE_CURRENT_LIST_DIR}/faults.cpp)
target_compile_definitions(tessaly_runtime_disturbed PRIVATE TESSALY_NODE_SIDE)
target_include_directories(tessaly_runtime_disturbed PRIVATE ${tessaly_include_dirs} ${CMAKE_CURRENT_LIST_DIR})

# The players see the verb interface as programs do, not as the node does.
add_library(stress_players OBJECT ${CMAKE_CURRENT_LIST_DIR}/stress.cpp ${CMAKE_CURRENT_LIST_DIR}/ledger.cpp)
target_include_directories(stress_players PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_definitions(stress_players PRIVATE TESSALY_NODE_PROGRAM="$<TARGET_FILE:tessaly_node>")
target_link_libraries(stress_players PRIVATE GTest::gtest)  # which the node's own process reports with

add_executable(stress $<TARGET_OBJECTS:stress_players>)
target_link_libraries(stress PRIVATE tessaly_static tessaly_runtime_disturbed tessaly_engine GTest::gtest Threads::Threads)
target_link_options(stress PRIVATE LINKER:--wrap=v0_assert,--wrap=vpm_send_ips)
add_test(NAME stress/every_verb_completes_once COMMAND stress)
add_test(NAME stress/every_verb_completes_once_over_a_node_that_is_killed COMMAND stress --node process)
set_tests_properties(stress/every_verb_completes_once stress/every_verb_completes_once_over_a_node_that_is_killed PROPERTIES LABELS stress TIMEOUT 300 PROCESSORS 2
    ENVIRONMENT "ASAN_OPTIONS=${asan_options};UBSAN_OPTIONS=${ubsan_options}")
