// The API trace file. A record is collected and written with one call when the file is unlocked, so that records of several
// threads, and of several processes that append to one file, stay whole. Has a mutex of its own: the process lock is not needed.
#include "localnode/runtime/trace_file.h"

#include "localnode/runtime/ebcdic.h"
#include "localnode/runtime/text_file.h"

#include "runtime/node_runtime.h"

#include <pthread.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>

namespace tessaly::runtime {

namespace {

constexpr u32 THE_FILE = 1;
constexpr u32 LINE_BYTES = 16;
constexpr u32 COPY_BYTES = 4096;  // a multiple of LINE_BYTES, not more than a page
constinit pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
[[gnu::tls_model("initial-exec")]] thread_local bool has_file = false;  // this thread's turn
constinit int file = -1;
constinit bool last_is_torn = false;  // the disk was full: the file may end within a line

// More than a block and 64 KiB of data take; the system gives a page only to what is used.
constinit std::array<char, 1024 * 1024> collected{};
constinit std::size_t collected_bytes = 0;
constinit bool is_cut = false;

constexpr std::string_view CUT = "(the record goes on, and is cut here)\n";

void open_file() noexcept
{
    const int error_of_caller = errno;
    if (file < 0)
        file = open_text_file(std::getenv("TESSALY_API_TRACE"));
    errno = error_of_caller;
}

void put(std::string_view text) noexcept
{
    std::memcpy(collected.data() + collected_bytes, text.data(), text.size());
    collected_bytes += text.size();
}

void collect(std::string_view line) noexcept
{
    if (is_cut)
        return;
    is_cut = line.size() + CUT.size() > collected.size() - collected_bytes;
    put(is_cut ? CUT : line);
}

void begin_record() noexcept
{
    collected_bytes = 0;
    is_cut = false;
    if (last_is_torn)
        put("\n");
}

void write_record() noexcept
{
    last_is_torn = !write_text(file, {collected.data(), collected_bytes});
}

bool may_write(u32 trace_file) noexcept
{
    return trace_file == THE_FILE && has_file;
}

// "APPC  0010  c1c2c3c4 40404040 00000000 00000000  |................| |ABCD............|"
void dump_line(const char* label, u32 offset, std::span<const u8> bytes) noexcept
{
    text_line<256> line;
    line.print("%.64s  %04x  ", label, offset);
    const auto digit = [&](u32 i, int shift) { return i < bytes.size() ? "0123456789abcdef"[bytes[i] >> shift & 0xF] : ' '; };
    for (u32 i = 0; i < LINE_BYTES; ++i) {
        line.put(digit(i, 4));
        line.put(digit(i, 0));
        if (i % 4 == 3)
            line.put(' ');
    }
    for (const bool ebcdic : {false, true}) {
        line.print(" |");
        for (u32 i = 0; i < LINE_BYTES; ++i) {
            const u8 byte = i < bytes.size() ? bytes[i] : static_cast<u8>(ebcdic ? 0x40 : ' ');
            line.put(printable(ebcdic ? ascii_of_ebcdic[byte] : byte));
        }
        line.put('|');
    }
    line.end_line();
    collect(line.text());
}

// Copies memory that a program names, which may not be there: the system reads it, page by page. Where it refuses to, the copy is
// made as if the memory were there. Result: how many bytes could be read.
u32 copy_if_readable(std::uintptr_t address, std::span<u8> to) noexcept
{
    const int error_of_caller = errno;
    const auto pointer = [](std::uintptr_t number) { return reinterpret_cast<void*>(number); };
    const std::size_t of_page = std::min(to.size(), COPY_BYTES - address % COPY_BYTES);
    const iovec local{to.data(), to.size()};
    const iovec remote[2] = {{pointer(address), of_page}, {pointer(address + of_page), to.size() - of_page}};
    ssize_t copied = process_vm_readv(getpid(), &local, 1, remote, 2, 0);
    if (copied < 0 && errno == EFAULT) {
        copied = 0;
    } else if (copied < 0) {
        std::memcpy(to.data(), pointer(address), to.size());
        copied = static_cast<ssize_t>(to.size());
    }
    errno = error_of_caller;
    return static_cast<u32>(copied);
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
}

}  // namespace tessaly::runtime

using namespace tessaly;
using namespace tessaly::runtime;

extern "C" {

trc_api_record trc_api = {0, {}, TRC_NO_FILE};

void sepuapi_init(uint8_t*)
{
    pthread_mutex_lock(&mutex);
    open_file();
    pthread_mutex_unlock(&mutex);
}

// The record is changed only by who has the file, or finds that there is none.
void trc_lock_file(trc_api_record* trace)
{
    if (trace == nullptr)
        return;
    if (has_file) {
        trace->trace_file = TRC_NO_FILE;
        return;
    }
    pthread_mutex_lock(&mutex);
    open_file();  // it may have been missing so far
    trace->trace_file = file < 0 ? TRC_NO_FILE : THE_FILE;
    if (file < 0) {
        pthread_mutex_unlock(&mutex);
        return;
    }
    has_file = true;
    begin_record();
}

void trc_unlock_file(trc_api_record*)
{
    if (!has_file)
        return;
    write_record();
    has_file = false;
    pthread_mutex_unlock(&mutex);
}

// "APPC  ==== 2031-02-03 04:05:06.789012 +0100 [812.815] ====": date, time, what it is ahead of UTC, process and thread.
void com_trc_sep(uint32_t trace_file, const char* label)
{
    if (!may_write(trace_file))
        return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    const long ahead = local.tm_gmtoff / 60;
    text_line<256> line;
    line.print("%.64s ==== %04d-%02d-%02d %02d:%02d:%02d.%06ld %c%02ld%02ld [%d.%d] ====", label, local.tm_year + 1900,
               local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1000,
               ahead < 0 ? '-' : '+', std::labs(ahead) / 60, std::labs(ahead) % 60, static_cast<int>(getpid()),
               static_cast<int>(gettid()));
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
    if (!may_write(trace_file))
        return;
    if (address == nullptr)
        return com_trc_line(trace_file, label, "(no address)");
    const auto from = reinterpret_cast<std::uintptr_t>(address);
    u8 copy[COPY_BYTES];
    for (u32 done = 0; done < bytes; done += COPY_BYTES) {
        const u32 wanted = std::min(COPY_BYTES, bytes - done);
        const u32 copied = copy_if_readable(from + done, {copy, wanted});
        for (u32 i = 0; i < copied; i += LINE_BYTES)
            dump_line(label, done + i, {copy + i, std::min(LINE_BYTES, copied - i)});
        if (copied != wanted)
            return com_trc_line(trace_file, label, "(no readable memory behind this)");
    }
}

}  // extern "C"
