target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/layout_64.cpp)
