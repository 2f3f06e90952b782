# The local node: its engine as a static library, and around it the stand-in runtime, libtessaly-runtime.so.7.
# localnode/engine/sources.cmake adds to tessaly_engine, localnode/runtime/sources.cmake to tessaly_runtime.

if(NOT EXISTS ${PROJECT_SOURCE_DIR}/localnode/engine/sources.cmake)
    return()
endif()

add_library(tessaly_engine STATIC)
include(${PROJECT_SOURCE_DIR}/localnode/engine/sources.cmake)
set_target_properties(tessaly_engine PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden)
target_compile_definitions(tessaly_engine PUBLIC TESSALY_NODE_SIDE)
target_include_directories(tessaly_engine PUBLIC ${tessaly_include_dirs})
if(TARGET tessaly_ground)
    target_link_libraries(tessaly_engine PUBLIC tessaly_ground)
endif()

if(NOT TESSALY_32BIT OR NOT EXISTS ${PROJECT_SOURCE_DIR}/localnode/runtime/sources.cmake)
    return()
endif()

# The map names no symbol version: the library must take the contract from whatever runtime is installed under this name, and
# a versioned reference would make the loader complain about any other.
set(map ${PROJECT_SOURCE_DIR}/cmake/libtessaly-runtime.map)
add_library(tessaly_runtime SHARED)
include(${PROJECT_SOURCE_DIR}/localnode/runtime/sources.cmake)
set_target_properties(tessaly_runtime PROPERTIES OUTPUT_NAME tessaly-runtime VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${map})
target_include_directories(tessaly_runtime INTERFACE ${tessaly_include_dirs})
target_link_options(tessaly_runtime PRIVATE LINKER:--version-script=${map})
target_link_libraries(tessaly_runtime PRIVATE tessaly_engine Threads::Threads)

# A verb over the embedded node is plain calls from the runtime through the engine and back.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_target_properties(tessaly_ground tessaly_engine tessaly_runtime PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    target_compile_options(tessaly_ground PRIVATE -ffat-lto-objects)
    target_compile_options(tessaly_engine PRIVATE -ffat-lto-objects)
endif()

# What programs in the background share, tessaly-node and the launcher; and tessaly-node. All but its main is a library, which its
# tests link.
if(NOT TESSALY_PROGRAMS OR NOT EXISTS ${PROJECT_SOURCE_DIR}/localnode/daemon/sources.cmake)
    return()
endif()
add_library(tessaly_service STATIC)
include(${PROJECT_SOURCE_DIR}/service/sources.cmake)
target_include_directories(tessaly_service PUBLIC ${tessaly_include_dirs})
target_link_libraries(tessaly_service PRIVATE tessaly_ground)  # for its code; the caller's blocks stay those of the caller's side
add_library(tessaly_daemon STATIC)
include(${PROJECT_SOURCE_DIR}/localnode/daemon/sources.cmake)
target_compile_definitions(tessaly_daemon PRIVATE TESSALY_VERSION="${PROJECT_VERSION}")
target_include_directories(tessaly_daemon PUBLIC ${tessaly_include_dirs})
target_link_libraries(tessaly_daemon PUBLIC tessaly_engine tessaly_service Threads::Threads)
add_executable(tessaly_node ${PROJECT_SOURCE_DIR}/localnode/daemon/main.cpp)
set_target_properties(tessaly_node PROPERTIES OUTPUT_NAME tessaly-node)
target_link_libraries(tessaly_node PRIVATE tessaly_daemon)
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set_target_properties(tessaly_service tessaly_daemon tessaly_node PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    target_compile_options(tessaly_service PRIVATE -ffat-lto-objects)
    target_compile_options(tessaly_daemon PRIVATE -ffat-lto-objects)
endif()

# The settings that are installed say what the node does without them. The service is systemd's.
configure_file(${PROJECT_SOURCE_DIR}/localnode/daemon/system/tessaly-node.service.in ${PROJECT_BINARY_DIR}/tessaly-node.service @ONLY)
install(TARGETS tessaly_node)
install(FILES localnode/daemon/tessaly-node.toml DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/tessaly)
install(FILES ${PROJECT_BINARY_DIR}/tessaly-node.service DESTINATION lib/systemd/system)
install(FILES localnode/daemon/system/tessaly.conf DESTINATION lib/tmpfiles.d)
