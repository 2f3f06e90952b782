// The API trace file and the diagnostics flags. A record is collected and written when the file is unlocked, so that processes
// can share a file. Has a mutex of its own: the process lock is not needed.
#include "localnode/runtime/trace_file.h"

#include "localnode/runtime/ebcdic.h"
#include "localnode/runtime/text_file.h"

#include "runtime/node_runtime.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace tessaly::runtime {

namespace {

constexpr u32 THE_FILE = 1;
constexpr u8 API_TRACE_ON = 0x08;  // in byte 1 of the flags

constinit pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
[[gnu::tls_model("initial-exec")]] thread_local bool has_file = false;  // this thread's turn
constinit int file = -1;
constinit u8 flags[16] = {};

constinit std::array<char, 32 * 1024> collected{};
constinit std::size_t collected_bytes = 0;

void write_collected() noexcept
{
    write_text(file, {collected.data(), collected_bytes});
    collected_bytes = 0;
}

void collect(std::string_view line) noexcept
{
    if (line.size() > collected.size() - collected_bytes)
        write_collected();
    std::memcpy(collected.data() + collected_bytes, line.data(), line.size());
    collected_bytes += line.size();
}

bool may_write(u32 trace_file) noexcept
{
    return trace_file == THE_FILE && has_file;
}

// "APPC  0010  c1c2c3c4 40404040 00000000 00000000  ........ ........  ABCD"
void dump_line(const char* label, const u8* bytes, u32 offset, u32 count) noexcept
{
    constexpr u32 WIDTH = 16;
    text_line<256> line;
    line.print("%.64s  %04x  ", label, offset);
    for (u32 i = 0; i < WIDTH; ++i) {
        if (i < count)
            line.print("%02x", bytes[offset + i]);
        else
            line.print("  ");
        if (i % 4 == 3)
            line.put(' ');
    }
    for (const bool ebcdic : {false, true}) {
        line.print(" |");
        for (u32 i = 0; i < WIDTH; ++i) {
            const u8 byte = i < count ? bytes[offset + i] : static_cast<u8>(ebcdic ? 0x40 : ' ');
            line.put(printable(ebcdic ? ascii_of_ebcdic[byte] : byte));
        }
        line.put('|');
    }
    line.end_line();
    collect(line.text());
}

[[gnu::constructor]] void read_environment() noexcept
{
    const char* name = std::getenv("TESSALY_API_TRACE");
    if (name != nullptr && *name != '\0')
        flags[1] |= API_TRACE_ON;
}

}  // namespace

void trace_mutex_before_fork() noexcept
{
    pthread_mutex_lock(&mutex);
}

void trace_mutex_after_fork() noexcept
{
    pthread_mutex_unlock(&mutex);
}

void trace_mutex_start_afresh() noexcept
{
    pthread_mutex_init(&mutex, nullptr);
    if (has_file)
        pthread_mutex_lock(&mutex);
    else
        collected_bytes = 0;
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" {

uint8_t* ptrc = flags;
trc_api_record trc_api = {0, {}, TRC_NO_FILE};

void sepuapi_init(uint8_t*)
{
    pthread_mutex_lock(&mutex);
    if (file < 0)
        file = open_text_file(std::getenv("TESSALY_API_TRACE"));
    pthread_mutex_unlock(&mutex);
}

void trc_lock_file(trc_api_record* trace)
{
    if (trace == nullptr)
        return;
    trace->trace_file = TRC_NO_FILE;
    if (has_file)
        return;
    pthread_mutex_lock(&mutex);
    if (file < 0) {
        pthread_mutex_unlock(&mutex);
        return;
    }
    has_file = true;
    trace->trace_file = THE_FILE;
}

void trc_unlock_file(trc_api_record*)
{
    if (!has_file)
        return;
    write_collected();
    has_file = false;
    pthread_mutex_unlock(&mutex);
}

void com_trc_sep(uint32_t trace_file, const char* label)
{
    if (!may_write(trace_file))
        return;
    text_line<256> line;
    line.print("%.64s ==== %s ====", label, stamp_now().text().data());
    line.end_line();
    collect(line.text());
}

void com_trc_line(uint32_t trace_file, const char* label, const char* text)
{
    if (!may_write(trace_file))
        return;
    text_line<1024> line;
    line.print("%.64s %s", label, text);
    line.end_line();
    collect(line.text());
}

void com_trc_dump(uint32_t trace_file, const char* label, const void* address, uint32_t bytes)
{
    constexpr uint32_t WIDTH = 16;
    if (!may_write(trace_file))
        return;
    if (address == nullptr)
        return com_trc_line(trace_file, label, "(no address)");
    for (uint32_t offset = 0; offset < bytes; offset += WIDTH)
        dump_line(label, static_cast<const tessaly::u8*>(address), offset, std::min(WIDTH, bytes - offset));
}

}  // extern "C"
