# Compiler and linker options of every target in this tree. They are set per directory, so a project that embeds this one
# keeps its own.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# What stands in the build tree runs from there and may be moved as a whole; what is installed likewise.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(TESSALY_WERROR)
    add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
    # A row of a table names the fields that matter; the others are zero.
    add_compile_options(-Wno-missing-field-initializers)
    # gcc 12 takes std::string + "literal" for an overlapping copy.
    add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
        # Part of clang's -Wconversion, but not of gcc's.
        add_compile_options(-Wno-sign-conversion)
    endif()
endif()

# Blocks and messages are bytes that are seen as one struct here and as another there.
add_compile_options(-fno-strict-aliasing)

add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack,-z,text)

if(TESSALY_SANITIZE)
    add_compile_options(-fsanitize=${TESSALY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TESSALY_SANITIZE} -fno-sanitize-recover=all)
else()
    # With a sanitizer the library leaves its operations to the program.
    add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:LINKER:--no-undefined>)
endif()
