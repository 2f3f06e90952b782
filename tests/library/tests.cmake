tessaly_test(NAME library_tests
    SOURCES cancelling.cpp completion.cpp hostile_answers.cpp incoming.cpp layouts.cpp message_bytes.cpp pending_records.cpp
            refusals.cpp results.cpp start_and_stop.cpp tp_start.cpp versions.cpp failures.cpp fault_sweep.cpp blocks_at_page_end.cpp
    LINK tessaly_scripted_node tessaly_static)
