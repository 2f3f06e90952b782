target_sources(tessaly_engine PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/engine.cpp
    ${CMAKE_CURRENT_LIST_DIR}/verbs.cpp
    ${CMAKE_CURRENT_LIST_DIR}/datagrams.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tps.cpp
    ${CMAKE_CURRENT_LIST_DIR}/lu_names.cpp
    ${CMAKE_CURRENT_LIST_DIR}/allocate.cpp
    ${CMAKE_CURRENT_LIST_DIR}/attaches.cpp
    ${CMAKE_CURRENT_LIST_DIR}/conversations.cpp
    ${CMAKE_CURRENT_LIST_DIR}/conversation_states.cpp
    ${CMAKE_CURRENT_LIST_DIR}/conversation_verbs.cpp
    ${CMAKE_CURRENT_LIST_DIR}/readings.cpp
    ${CMAKE_CURRENT_LIST_DIR}/transfer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/record_queue.cpp
    ${CMAKE_CURRENT_LIST_DIR}/confirm.cpp
    ${CMAKE_CURRENT_LIST_DIR}/errors.cpp
    ${CMAKE_CURRENT_LIST_DIR}/inquiries.cpp
    ${CMAKE_CURRENT_LIST_DIR}/replies.cpp)
