tessaly_test(NAME tp_server_tests SOURCES serving.cpp verbs.cpp answers.cpp lifetimes.cpp fault_sweep.cpp
    LINK tessaly_scripted_node tessaly_static)
