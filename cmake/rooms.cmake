# The rooms of the verb library, from the ground up. A room with sources names them in its sources.cmake:
#
#     target_sources(tessaly_objects PRIVATE ${CMAKE_CURRENT_LIST_DIR}/list.cpp)
#
# tessaly_objects is what the library is made of. tessaly_ground is common and verbs once more, for the local node, which sees
# the pointers in blocks as numbers.

set(tessaly_include_dirs ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
set(tessaly_lean_cxx -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)

# Of the rooms named, those that have sources.
function(tessaly_find_rooms result)
    set(found)
    foreach(room IN LISTS ARGN)
        if(EXISTS ${PROJECT_SOURCE_DIR}/${room}/sources.cmake)
            list(APPEND found ${room})
        endif()
    endforeach()
    set(${result} ${found} PARENT_SCOPE)
endfunction()

tessaly_find_rooms(ground_rooms common verbs)
tessaly_find_rooms(upper_rooms names vsvig vtpsrv v6/records v6/vav v6/vavsub v6/vav3264)
if(NOT ground_rooms AND NOT upper_rooms)
    return()
endif()

# Nothing builds the objects for their own sake, so that a 64-bit build of the engine leaves them alone.
add_library(tessaly_objects OBJECT EXCLUDE_FROM_ALL)
set_target_properties(tessaly_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_compile_options(tessaly_objects PRIVATE ${tessaly_lean_cxx})
target_include_directories(tessaly_objects PRIVATE ${tessaly_include_dirs})

foreach(room IN LISTS ground_rooms)
    include(${PROJECT_SOURCE_DIR}/${room}/sources.cmake)
endforeach()

if(ground_rooms)
    get_target_property(ground_sources tessaly_objects SOURCES)
    add_library(tessaly_ground STATIC ${ground_sources})
    set_target_properties(tessaly_ground PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(tessaly_ground PRIVATE ${tessaly_lean_cxx})
    target_compile_definitions(tessaly_ground PUBLIC TESSALY_NODE_SIDE)
    target_include_directories(tessaly_ground PUBLIC ${tessaly_include_dirs})
endif()

foreach(room IN LISTS upper_rooms)
    include(${PROJECT_SOURCE_DIR}/${room}/sources.cmake)
endforeach()
