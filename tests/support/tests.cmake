# What the tests of the library link besides it: the scripted node, which is their runtime, and the fixture.
if(NOT TARGET tessaly_static OR NOT TESSALY_HAS_GOOGLETEST)
    return()
endif()

add_library(tessaly_scripted_node OBJECT
    ${CMAKE_CURRENT_LIST_DIR}/contract.cpp
    ${CMAKE_CURRENT_LIST_DIR}/library_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/published_layouts.cpp
    ${CMAKE_CURRENT_LIST_DIR}/scripted_node.cpp)
target_include_directories(tessaly_scripted_node PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(tessaly_scripted_node PUBLIC tessaly_static GTest::gtest)
