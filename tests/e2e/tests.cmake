if(NOT TARGET tessaly_node)
    return()
endif()
set(node TESSALY_NODE_PROGRAM="$<TARGET_FILE:tessaly_node>")

# The same stories over both hosts.
tessaly_test(NAME conversations SOURCES conversations.cpp LINK tessaly DEFINES ${node} AGAIN_WITH socket)
tessaly_test(NAME processes SOURCES processes.cpp LINK tessaly DEFINES ${node})
tessaly_test(NAME killed_node SOURCES killed_node.cpp LINK tessaly DEFINES ${node})
tessaly_test(NAME tool_over_node SOURCES tool.cpp LINK tessaly tessaly_tool
    DEFINES ${node} TESSALY_PROGRAM="$<TARGET_FILE:tessaly_program>")
foreach(test conversations processes killed_node tool_over_node)
    if(TARGET ${test})
        add_dependencies(${test} tessaly_node)
    endif()
endforeach()
if(TARGET tool_over_node)
    add_dependencies(tool_over_node tessaly_program)
endif()
