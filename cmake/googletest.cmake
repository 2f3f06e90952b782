# GoogleTest from Debian's source package: built once per word size, without sanitizers, and shared by all build trees that
# name the same directory. Gives GTest::gtest, GTest::gtest_main and GTest::gmock, or leaves TESSALY_HAS_GOOGLETEST off.

set(TESSALY_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's source")

set(TESSALY_HAS_GOOGLETEST OFF)
if(NOT EXISTS ${TESSALY_GOOGLETEST_SOURCE}/CMakeLists.txt)
    message(WARNING "no GoogleTest in ${TESSALY_GOOGLETEST_SOURCE}: the tests written with it are SKIPPED "
                    "(apt-get install googletest)")
    return()
endif()

math(EXPR word_size "8 * ${CMAKE_SIZEOF_VOID_P}")
set(prefix ${TESSALY_GOOGLETEST_DIR}/${word_size})

# Two build trees may be configured at the same time.
file(MAKE_DIRECTORY ${prefix})
file(LOCK ${prefix} DIRECTORY GUARD FILE TIMEOUT 600)

function(tessaly_run_for_googletest)
    execute_process(COMMAND ${ARGN} OUTPUT_FILE ${prefix}/log ERROR_FILE ${prefix}/log RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "GoogleTest cannot be built; see ${prefix}/log")
    endif()
endfunction()

# The recipe is written last, so an interrupted build is started anew.
file(STRINGS ${TESSALY_GOOGLETEST_SOURCE}/CMakeLists.txt version REGEX "GOOGLETEST_VERSION [0-9]")
set(recipe "${version} -std=c++20")
set(built "")
if(EXISTS ${prefix}/recipe)
    file(READ ${prefix}/recipe built)
endif()
if(NOT built STREQUAL recipe)
    message(STATUS "Building GoogleTest in ${prefix}")
    # Always plain gcc: the build tree's own compiler may be clang. The C++ library is the same one.
    tessaly_run_for_googletest(${CMAKE_COMMAND} -S ${TESSALY_GOOGLETEST_SOURCE} -B ${prefix}/build --fresh -G Ninja -Wno-dev
        -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_FLAGS=-m${word_size}
        "-DCMAKE_CXX_FLAGS=-m${word_size} -msse2 -mfpmath=sse" -DCMAKE_CXX_STANDARD=20 -DCMAKE_BUILD_TYPE=Release
        -DCMAKE_INSTALL_PREFIX=${prefix} -DCMAKE_INSTALL_LIBDIR=lib)
    tessaly_run_for_googletest(${CMAKE_COMMAND} --build ${prefix}/build --target install)
    file(WRITE ${prefix}/recipe "${recipe}")
endif()

find_package(GTest CONFIG REQUIRED PATHS ${prefix} NO_DEFAULT_PATH)
set(TESSALY_HAS_GOOGLETEST ON)
