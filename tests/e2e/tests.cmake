if(NOT TARGET tessaly_node)
    return()
endif()
set(node TESSALY_NODE_PROGRAM="$<TARGET_FILE:tessaly_node>")

# The same stories over both hosts.
tessaly_test(NAME conversations SOURCES conversations.cpp LINK tessaly DEFINES ${node} AGAIN_WITH socket)
tessaly_test(NAME processes SOURCES processes.cpp LINK tessaly DEFINES ${node})
