tessaly_test(NAME verbs_tests SOURCES layout_64.cpp LINK tessaly_static)
