target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/alias_map.cpp
    ${CMAKE_CURRENT_LIST_DIR}/cpic.cpp
    ${CMAKE_CURRENT_LIST_DIR}/dispatch.cpp
    ${CMAKE_CURRENT_LIST_DIR}/entry.cpp
    ${CMAKE_CURRENT_LIST_DIR}/incoming.cpp
    ${CMAKE_CURRENT_LIST_DIR}/lifecycle.cpp
    ${CMAKE_CURRENT_LIST_DIR}/send.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tp_start.cpp
    ${CMAKE_CURRENT_LIST_DIR}/version.cpp)
