# The verb library, libtessaly.so.7 and libtessaly.a, from one set of objects.

if(NOT TESSALY_32BIT OR NOT TARGET tessaly_objects)
    return()
endif()

add_library(tessaly_static STATIC $<TARGET_OBJECTS:tessaly_objects>)
set_target_properties(tessaly_static PROPERTIES OUTPUT_NAME tessaly)
target_include_directories(tessaly_static INTERFACE ${tessaly_include_dirs})

set(link_time_optimisation OFF)
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set(link_time_optimisation ON)
    # The road of one verb is a chain of small functions, which pays only when most of them are inlined.
    target_compile_options(tessaly_objects PRIVATE -O3)
    # The objects carry machine code beside the intermediate code. The archive keeps the former alone: any linker can use it,
    # and a program that links it does not optimise the library all over again.
    target_compile_options(tessaly_objects PRIVATE -ffat-lto-objects)
    add_custom_command(TARGET tessaly_static POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} -R ".gnu.lto_*" -R ".gnu.debuglto_*" -N __gnu_lto_v1 $<TARGET_FILE:tessaly_static>
        VERBATIM)
endif()
set_target_properties(tessaly_objects PROPERTIES INTERPROCEDURAL_OPTIMIZATION ${link_time_optimisation})

# Linked without a runtime, the shared library would name none as needed.
if(NOT TARGET tessaly_runtime)
    message(STATUS "tessaly: there is no stand-in runtime, so libtessaly.so is not built")
    return()
endif()

set(map ${PROJECT_SOURCE_DIR}/cmake/libtessaly.map)
add_library(tessaly SHARED $<TARGET_OBJECTS:tessaly_objects>)
set_target_properties(tessaly PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${map}
    LINKER_LANGUAGE CXX INTERPROCEDURAL_OPTIMIZATION ${link_time_optimisation}
    BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
target_include_directories(tessaly INTERFACE ${PROJECT_SOURCE_DIR}/include)
target_link_options(tessaly PRIVATE LINKER:--version-script=${map})
target_link_libraries(tessaly PRIVATE tessaly_runtime)
add_library(tessaly::tessaly ALIAS tessaly)
