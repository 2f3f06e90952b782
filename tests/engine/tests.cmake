tessaly_test(NAME engine_test
    SOURCES playing.cpp conversation.cpp confirmation.cpp attaches.cpp endings.cpp errors.cpp refusals.cpp
    LINK tessaly_engine)
