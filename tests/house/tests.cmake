# The rules of the house: the source tree's own, those of the public headers, those of the built library.

tessaly_test(NAME house_rules SOURCES source_tree.cpp rooms.cpp banned_words.cpp text_rules.cpp house_rules_test.cpp
    DEFINES TESSALY_SOURCE_ROOT="${PROJECT_SOURCE_DIR}")

# Each public header compiles alone, in the oldest and the newest language that its users have. It is included twice: a header
# that is not guarded fails here.
function(tessaly_header_test header)
    get_filename_component(name ${header} NAME)
    set(alone ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.inc)
    file(CONFIGURE OUTPUT ${alone} CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
    foreach(standard IN LISTS ARGN)
        set(compiler ${CMAKE_C_COMPILER} -x c)
        if(standard MATCHES "\\+\\+")
            set(compiler ${CMAKE_CXX_COMPILER} -x c++)
        endif()
        add_test(NAME "headers/${name} ${standard}" COMMAND ${compiler} -std=${standard} -m32 -pedantic-errors -Wall -Wextra -Werror
            -fsyntax-only -I${PROJECT_SOURCE_DIR}/include -I${PROJECT_SOURCE_DIR} ${alone})
        set_tests_properties("headers/${name} ${standard}" PROPERTIES LABELS house TIMEOUT 60)
    endforeach()
endfunction()

file(GLOB public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/tessaly/*.h)
foreach(header IN LISTS public_headers)
    tessaly_header_test(${header} c89 c99 c11 c17 c++98 c++11 c++17 c++20)
endforeach()
if(EXISTS ${PROJECT_SOURCE_DIR}/runtime/node_runtime.h)
    tessaly_header_test(${PROJECT_SOURCE_DIR}/runtime/node_runtime.h c99 c++20)
endif()

# Instrumented libraries take more from the C library than the product does.
string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
if(TARGET tessaly AND NOT TESSALY_SANITIZE AND NOT CMAKE_CXX_FLAGS_${build_type} MATCHES "--coverage")
    add_test(NAME house/exports COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/exports.sh $<TARGET_FILE:tessaly>
        ${PROJECT_SOURCE_DIR}/cmake/libtessaly.map)
    set_tests_properties(house/exports PROPERTIES LABELS house TIMEOUT 60)
endif()
