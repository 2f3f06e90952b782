target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/answers.cpp
    ${CMAKE_CURRENT_LIST_DIR}/completion.cpp
    ${CMAKE_CURRENT_LIST_DIR}/failure.cpp
    ${CMAKE_CURRENT_LIST_DIR}/path_callback.cpp
    ${CMAKE_CURRENT_LIST_DIR}/results.cpp
    ${CMAKE_CURRENT_LIST_DIR}/set_tp.cpp
    ${CMAKE_CURRENT_LIST_DIR}/status.cpp)
