tessaly_test(NAME vsvig_tests SOURCES printing.cpp LINK tessaly_static)
