# With the real conversion and character classes of the stand-in runtime.
tessaly_test(NAME names_tests SOURCES names.cpp LINK tessaly_static tessaly_runtime)
