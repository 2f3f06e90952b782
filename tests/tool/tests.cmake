tessaly_test(NAME tool_tests SOURCES codes.cpp program.cpp status.cpp transfer.cpp LINK tessaly_tool
    DEFINES TESSALY_APPC_HEADER="${PROJECT_SOURCE_DIR}/include/tessaly/appc.h"
            TESSALY_PROGRAM="$<TARGET_FILE:tessaly_program>")
if(TARGET tool_tests)
    add_dependencies(tool_tests tessaly_program)
endif()
