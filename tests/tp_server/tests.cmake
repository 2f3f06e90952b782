tessaly_test(NAME tp_server_tests SOURCES serving.cpp verbs.cpp
    LINK tessaly_scripted_node tessaly_static)
