tessaly_test(NAME tool_tests SOURCES codes.cpp program.cpp status.cpp trace.cpp transfer.cpp LINK tessaly_tool
    DEFINES TESSALY_HEADERS="${PROJECT_SOURCE_DIR}/include/tessaly"
            TESSALY_PROGRAM="$<TARGET_FILE:tessaly_program>" TESSALY_LIBRARY="$<TARGET_FILE:tessaly>")
if(TARGET tool_tests)
    add_dependencies(tool_tests tessaly_program)
endif()

if(TARGET tessaly_program AND TARGET hello_c)
    add_test(NAME tool/chart_in_browser COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/chart_in_browser.sh
        $<TARGET_FILE:tessaly_program> $<TARGET_FILE:hello_c>)
    set_tests_properties(tool/chart_in_browser PROPERTIES LABELS tool TIMEOUT 120 SKIP_RETURN_CODE 77)
endif()
