tessaly_test(NAME engine_test
    SOURCES playing.cpp scripts.cpp dialogues.cpp attaches.cpp properties.cpp refusals.cpp configured.cpp pacing.cpp tp_servers.cpp attach_queries.cpp
    LINK tessaly_engine)

# Long runs; their own program, so that the stories above stay quick to build and start.
tessaly_test(NAME engine_exhaustive SOURCES playing.cpp oracle.cpp simulation.cpp simulation_checks.cpp LINK tessaly_engine)
if(TARGET engine_exhaustive)
    target_compile_options(engine_exhaustive PRIVATE -O1)
    set_target_properties(engine_exhaustive PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)  # they are compiled without
endif()

# The engine once more for 64-bit machines; in one preset, since it is the same in all.
if(TESSALY_32BIT AND NOT TESSALY_SANITIZE)
    add_test(NAME "engine/builds and holds with 64 bits" COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/build_64.sh
        ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/engine_64 ${TESSALY_GOOGLETEST_DIR})
    set_tests_properties("engine/builds and holds with 64 bits" PROPERTIES LABELS engine TIMEOUT 300 PROCESSORS 2
        SKIP_RETURN_CODE 77)
endif()

# The picture of the state table in docs/.
add_executable(state_table ${PROJECT_SOURCE_DIR}/tools/docs/state_table.cpp)
set_target_properties(state_table PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
target_link_libraries(state_table PRIVATE tessaly_engine)
add_test(NAME "docs/state table" COMMAND bash ${PROJECT_SOURCE_DIR}/tools/docs/compare.sh $<TARGET_FILE:state_table>
    ${PROJECT_SOURCE_DIR}/docs)
set_tests_properties("docs/state table" PROPERTIES LABELS docs TIMEOUT 60)
