tessaly_test(NAME conversations SOURCES conversations.cpp LINK tessaly)
