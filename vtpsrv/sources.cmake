target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/vtpsmain_dispatch.cpp)
