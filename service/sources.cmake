target_sources(tessaly_service PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/common_settings.cpp
    ${CMAKE_CURRENT_LIST_DIR}/config_file.cpp
    ${CMAKE_CURRENT_LIST_DIR}/config_section.cpp
    ${CMAKE_CURRENT_LIST_DIR}/log.cpp
    ${CMAKE_CURRENT_LIST_DIR}/notify.cpp
    ${CMAKE_CURRENT_LIST_DIR}/program.cpp)
