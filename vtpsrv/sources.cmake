target_sources(tessaly_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/vtpscbck_answers.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpscbck_ltv.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpscbck_receive.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsmain_dispatch.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsmain_lifecycle.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsmain_records.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsmain_validation.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsvrfy_privilege.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsutil_completion.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsutil_paths.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsverb_messages.cpp
    ${CMAKE_CURRENT_LIST_DIR}/vtpsverb_process.cpp)
