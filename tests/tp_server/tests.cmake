tessaly_test(NAME tp_server_tests SOURCES serving.cpp verbs.cpp answers.cpp
    LINK tessaly_scripted_node tessaly_static)
