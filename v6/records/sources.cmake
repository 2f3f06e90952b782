target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/main_cb.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pend_cache.cpp
    ${CMAKE_CURRENT_LIST_DIR}/pndcb.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tpcb.cpp)
