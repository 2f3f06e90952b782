// The sending end of a file transfer: see transfer.h.
#include "tools/tessaly/commands.h"
#include "tools/tessaly/crc64.h"
#include "tools/tessaly/transfer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessaly::tool {

namespace {

class input_file {
public:
    explicit input_file(const std::string& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~input_file()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    input_file(const input_file&) = delete;
    input_file& operator=(const input_file&) = delete;

    bool is_open() const { return fd_ >= 0; }

    // 0 when it cannot be told, as for a pipe.
    std::uint64_t size() const
    {
        struct stat about {};
        return ::fstat(fd_, &about) == 0 && S_ISREG(about.st_mode) ? static_cast<std::uint64_t>(about.st_size) : 0;
    }

    // Bytes read, 0 at the end, below 0 with errno.
    ssize_t read(std::span<appc_u8> into) const
    {
        ssize_t bytes = 0;
        do
            bytes = ::read(fd_, into.data(), into.size());
        while (bytes < 0 && errno == EINTR);
        return bytes;
    }

private:
    int fd_;
};

std::string base_name(const std::string& path)
{
    return path.substr(path.find_last_of('/') + 1).substr(0, LONGEST_NAME);
}

std::vector<appc_u8> header_record(const std::string& path, std::uint64_t size)
{
    const std::string name = base_name(path);
    std::vector<appc_u8> record(HEADER_NAME_AT + name.size());
    record[0] = static_cast<appc_u8>(record_kind::header);
    std::ranges::copy(TRANSFER_MAGIC, record.begin() + 1);
    put_number(std::span(record).subspan(HEADER_SIZE_AT), size);
    std::ranges::copy(name, record.begin() + HEADER_NAME_AT);
    return record;
}

struct transfer_state {
    std::uint64_t bytes = 0;
    crc64 sum;
    int read_error = 0;  // errno
};

// Sends all parts of the file. Stops early when it cannot be read.
outcome send_parts(conversation& conv, const input_file& file, std::uint64_t size, transfer_state& state)
{
    progress bar("sending", size);
    std::vector<appc_u8> record(1 + PART_BYTES);
    record[0] = static_cast<appc_u8>(record_kind::data);
    while (true) {
        const ssize_t bytes = file.read(std::span(record).subspan(1));
        if (bytes <= 0) {
            state.read_error = bytes < 0 ? errno : 0;
            return {};
        }
        const auto part = std::span(record).first(1 + static_cast<std::size_t>(bytes));
        state.sum.add(part.subspan(1));
        if (const outcome result = conv.send(part); !result.ok())
            return result;
        state.bytes += static_cast<std::uint64_t>(bytes);
        bar.at(state.bytes);
    }
}

// The end record; then DEALLOCATE waits until the receiver has confirmed.
outcome send_end(conversation& conv, const transfer_state& state)
{
    std::vector<appc_u8> record(END_BYTES);
    record[0] = static_cast<appc_u8>(record_kind::end);
    put_number(std::span(record).subspan(1), state.bytes);
    put_number(std::span(record).subspan(END_CRC_AT), state.sum.value());
    const outcome result = conv.send(record);
    return result.ok() ? conv.deallocate(APPC_DEALLOC_CONFIRM) : result;
}

// After the receiver's SEND_ERROR: its reason, if it gives one.
ending refused_by_receiver(conversation& conv, const outcome& verb, clock::duration limit)
{
    std::vector<appc_u8> record(LONGEST_RECORD);
    received got;
    if (conv.receive(record, got).ok() && got.bytes > 1 && record[0] == static_cast<appc_u8>(record_kind::refusal))
        return {EXIT_VERB_FAILED, "the receiver refused the file: " +
                                      printable({reinterpret_cast<const char*>(record.data()) + 1, got.bytes - 1})};
    return failed(verb, limit);
}

}  // namespace

ending send_file(stopper& stop, const send_options& options)
{
    const input_file file(options.file);
    if (!file.is_open())
        return {EXIT_USAGE, text_of("cannot open %s: %s", options.file.c_str(), std::strerror(errno))};

    conversation conv(stop, options.limit);
    outcome result = conv.allocate(options.local_lu, "SENDFILE", options.with, APPC_SYNC_CONFIRM);
    if (!result.ok())
        return failed(result, options.limit);

    const std::uint64_t size = file.size();
    transfer_state state;
    result = conv.send(header_record(options.file, size));
    if (result.ok())
        result = send_parts(conv, file, size, state);
    if (state.read_error != 0) {
        conv.deallocate(APPC_DEALLOC_TYPE_ABEND);
        return {EXIT_USAGE, text_of("cannot read %s: %s; the receiver was told", options.file.c_str(),
                                    std::strerror(state.read_error))};
    }
    if (result.ok())
        result = send_end(conv, state);
    if (result.primary == PROG_ERROR_PURGING || result.primary == PROG_ERROR_NO_TRUNC)
        return refused_by_receiver(conv, result, options.limit);
    if (!result.ok())
        return failed(result, options.limit);
    return {EXIT_OK, text_of("%s: %llu bytes sent to %s on %s and confirmed, CRC-64 %016llx", options.file.c_str(),
                             static_cast<unsigned long long>(state.bytes), options.with.tp.c_str(),
                             options.with.lu.c_str(), static_cast<unsigned long long>(state.sum.value()))};
}

}  // namespace tessaly::tool
