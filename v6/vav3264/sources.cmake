target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/layout_tables.cpp)
