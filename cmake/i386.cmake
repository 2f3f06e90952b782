# Toolchain of the whole project: the host's own compiler, for 32-bit i386 Linux. SSE2 keeps floating point (of tests and
# tools; the library has none) the same as on 64-bit machines.
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
endforeach()
