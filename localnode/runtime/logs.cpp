// The problem, exception and audit logs, and reports of broken invariants: one line of text each, written at once, so that
// several threads and processes can share a file.
#include "localnode/runtime/logs.h"

#include "localnode/runtime/ebcdic.h"
#include "localnode/runtime/text_file.h"

#include "runtime/node_runtime.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <span>

namespace tessaly::runtime {

namespace {

constexpr u32 LONGEST_SHOWN = 4096;  // bytes of one argument; lengths are not trusted
using record = text_line<16 * 1024>;

constinit int log_file = -1;
constinit bool asserts_abort = false;

[[gnu::constructor]] void read_environment() noexcept
{
    log_file = open_text_file(std::getenv("TESSALY_LOG"));
    const char* on_assert = std::getenv("TESSALY_ASSERT");
    asserts_abort = on_assert != nullptr && std::string_view{on_assert} == "abort";
}

std::span<const u8> shown_bytes(const u8* bytes, u32 count) noexcept
{
    return {bytes, bytes != nullptr ? std::min(count, LONGEST_SHOWN) : 0};
}

// False for a code that is unknown, and whose arguments are therefore too.
bool print_argument(record& line, std::string_view code, std::va_list* args) noexcept
{
    if (code == "x" || code == "lx") {
        const u32 value = va_arg(*args, u32);
        code == "x" ? line.print(" %04x", value & 0xFFFF) : line.print(" %08x", value);
        return true;
    }
    if (code != "es" && code != "ca" && code != "ba")
        return false;
    const u32 count = va_arg(*args, u32);
    const auto bytes = shown_bytes(va_arg(*args, const u8*), count);
    line.put(' ');
    if (code == "ba") {
        for (const u8 byte : bytes)
            line.print("%02x", byte);
        return true;
    }
    line.put('"');
    for (const u8 byte : bytes)
        line.put(printable(code == "es" ? ascii_of_ebcdic[byte] : byte));
    line.put('"');
    return true;
}

void write_record(const char* kind, u32 id, u16 point, const char* descriptor, std::va_list* args) noexcept
{
    if (log_file < 0)
        return;
    record line;
    line.print("%s %s 0x%08x point %u:", stamp_now().text().data(), kind, id, point);
    std::string_view codes = descriptor != nullptr ? descriptor : "";
    while (!codes.empty()) {
        const std::string_view code = codes.substr(0, codes.find(' '));
        codes.remove_prefix(std::min(code.size() + 1, codes.size()));
        if (!print_argument(line, code, args)) {
            line.print(" (unknown descriptor)");
            break;
        }
    }
    line.end_line();
    write_text(log_file, line.text());
}

}  // namespace

void log_node(const char* format, ...) noexcept
{
    if (log_file < 0)
        return;
    char text[512];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    text_line<1024> line;
    line.print("%s node: %s", stamp_now().text().data(), text);
    line.end_line();
    write_text(log_file, line.text());
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" void nba_pd_print_problem(uint32_t id, uint16_t point, const char* descriptor, ...)
{
    std::va_list args;
    va_start(args, descriptor);
    write_record("problem", id, point, descriptor, &args);
    va_end(args);
}

extern "C" void nba_pd_print_exception(uint32_t id, uint16_t point, const char* descriptor, ...)
{
    std::va_list args;
    va_start(args, descriptor);
    write_record("exception", id, point, descriptor, &args);
    va_end(args);
}

extern "C" void nba_pd_print_audit(uint32_t id, uint16_t point, const char* descriptor, ...)
{
    std::va_list args;
    va_start(args, descriptor);
    write_record("audit", id, point, descriptor, &args);
    va_end(args);
}

extern "C" void v0_assert(const char* path, uint32_t line, const char* text)
{
    text_line<1024> report;
    report.print("%s broken invariant: %s:%u: %s", stamp_now().text().data(), path, line, text);
    report.end_line();
    write_text(STDERR_FILENO, report.text());
    if (log_file >= 0 && log_file != STDERR_FILENO)
        write_text(log_file, report.text());
    if (asserts_abort)
        std::abort();
}
