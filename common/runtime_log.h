// The log records of the library: identifiers, and the two switches that silence exceptions and audits.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"

namespace tessaly {

enum log_id : u32 {
    LOG_UNEXPECTED_MESSAGE = 0x20010000,     // exception
    LOG_TP_TABLE_FULL = 0x20010001,          // problem
    LOG_SHORTAGE = 0x20010002,               // exception
    LOG_TP_FAILED = 0x20010003,              // exception
    LOG_TP_START_FAILED = 0x20010004,        // problem
    LOG_VERB_FAILED = 0x20010005,            // problem
    LOG_NODE_TERMINATED = 0x20010007,        // problem
    LOG_TP_STARTED = 0x20010008,             // audit
    LOG_TP_ENDED = 0x20010009,               // audit
    LOG_CONVERSATION_ACCEPTED = 0x2001000A,  // audit
    LOG_NO_PATH_USER = 0x2001000B,           // problem
    LOG_NO_USER_NAME = 0x2001000C,           // exception
    LOG_SET_TP_FAILED = 0x2001000D,          // exception
};

template <typename... Args>
void log_problem(log_id id, u16 point, const char* descriptor, Args... args) noexcept
{
    nba_pd_print_problem(id, point, descriptor, args...);
}

template <typename... Args>
void log_exception(log_id id, u16 point, const char* descriptor, Args... args) noexcept
{
    constexpr u8 EXCEPTIONS_OFF = 0x01;
    if ((ptrc[8] & EXCEPTIONS_OFF) == 0)
        nba_pd_print_exception(id, point, descriptor, args...);
}

template <typename... Args>
void log_audit(log_id id, u16 point, const char* descriptor, Args... args) noexcept
{
    constexpr u8 AUDITS_OFF = 0x02;
    if ((ptrc[8] & AUDITS_OFF) == 0)
        nba_pd_print_audit(id, point, descriptor, args...);
}

inline bool api_trace_on() noexcept
{
    constexpr u8 API_TRACE_ON = 0x08;
    return (ptrc[1] & API_TRACE_ON) != 0;
}

}  // namespace tessaly
