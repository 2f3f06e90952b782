tessaly_test(NAME engine_test
    SOURCES playing.cpp scripts.cpp conversation.cpp dialogues.cpp attaches.cpp endings.cpp properties.cpp refusals.cpp
    LINK tessaly_engine)

# Long runs; their own program, so that the stories above stay quick to build and start.
tessaly_test(NAME engine_exhaustive SOURCES playing.cpp oracle.cpp simulation.cpp simulation_checks.cpp LINK tessaly_engine)
if(TARGET engine_exhaustive)
    target_compile_options(engine_exhaustive PRIVATE -O1)
    set_target_properties(engine_exhaustive PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)  # they are compiled without
endif()
