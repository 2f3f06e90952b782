target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ntlcomn_compare.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ntlname_build.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ntlname_check.cpp)
