target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/semutrap_verb_trace.cpp
    ${CMAKE_CURRENT_LIST_DIR}/svmcspnt_print.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vantor_version.cpp)
