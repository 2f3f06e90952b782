tessaly_test(NAME vsvig_tests SOURCES printing.cpp LINK tessaly_static)
tessaly_test(NAME verb_trace_tests SOURCES verb_trace.cpp LINK tessaly_scripted_node)
