tessaly_test(NAME tool_tests SOURCES codes.cpp program.cpp status.cpp transfer.cpp LINK tessaly_tool
    DEFINES TESSALY_HEADERS="${PROJECT_SOURCE_DIR}/include/tessaly"
            TESSALY_PROGRAM="$<TARGET_FILE:tessaly_program>")
if(TARGET tool_tests)
    add_dependencies(tool_tests tessaly_program)
endif()
