// The receiving end of a file transfer: see transfer.h. All that comes is hostile until checked.
#include "tools/tessaly/commands.h"
#include "tools/tessaly/crc64.h"
#include "tools/tessaly/transfer.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

namespace tessaly::tool {

namespace {

// A file that has its name only once it is whole, and is gone otherwise.
class new_file {
public:
    new_file() = default;
    ~new_file()
    {
        if (fd_ >= 0)
            ::close(fd_);
        if (!temporary_.empty())
            ::unlink(temporary_.c_str());
    }
    new_file(const new_file&) = delete;
    new_file& operator=(const new_file&) = delete;

    // Each: false with errno.
    bool create_beside(const std::string& target)
    {
        temporary_ = target + ".XXXXXX";
        fd_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
        if (fd_ < 0)
            temporary_.clear();
        return fd_ >= 0;
    }

    bool write(std::span<const appc_u8> bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR)
                return false;
            bytes = bytes.subspan(written > 0 ? static_cast<std::size_t>(written) : 0);
        }
        return true;
    }

    bool take_name(const std::string& target, bool may_replace)
    {
        const mode_t mask = ::umask(0);  // which cannot be asked for otherwise
        ::umask(mask);
        if (::fchmod(fd_, 0666 & ~mask) != 0 || ::fsync(fd_) != 0)
            return false;
        if (::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target.c_str(), may_replace ? 0 : RENAME_NOREPLACE) !=
            0)
            return false;
        temporary_.clear();
        return true;
    }

private:
    int fd_ = -1;
    std::string temporary_;
};

// A name for the working directory: no path, nothing hidden, nothing that a terminal would obey.
bool is_safe_name(std::string_view name)
{
    return !name.empty() && name.size() <= LONGEST_NAME && name.front() != '.' && name.front() != '-' &&
           std::ranges::all_of(name, [](unsigned char c) { return c >= ' ' && c != '/' && c != 0x7F; });
}

// One transfer, as far as it has come. A step returns why it refuses what came; empty: it does not.
class reception {
public:
    explicit reception(const receive_options& options) : options_(options) {}

    std::string take(std::span<const appc_u8> record)
    {
        if (record.empty())
            return "an empty record";
        const auto kind = static_cast<record_kind>(record[0]);
        if (target_.empty())
            return kind == record_kind::header ? take_header(record)
                                               : "no header came first; is the partner tessaly send?";
        if (kind == record_kind::data && !ended_)
            return take_data(record.subspan(1));
        if (kind == record_kind::end && !ended_)
            return take_end(record);
        return "a record out of order";
    }

    // The sender has asked to confirm the end.
    std::string finish()
    {
        if (!ended_)
            return "the file ended too early";
        if (!file_.take_name(target_, !options_.output.empty()))
            return system_says("cannot give the file its name " + target_);
        return {};
    }

    std::string summary(const std::string& from) const
    {
        return text_of("%s: %llu bytes received from %s, CRC-64 %016llx agrees", printable(target_).c_str(),
                       static_cast<unsigned long long>(bytes_), from.c_str(),
                       static_cast<unsigned long long>(sum_.value()));
    }

private:
    static std::string system_says(const std::string& what) { return what + ": " + std::strerror(errno); }

    std::string take_header(std::span<const appc_u8> record)
    {
        const std::string_view text(reinterpret_cast<const char*>(record.data()), record.size());
        if (text.size() < HEADER_NAME_AT || text.substr(1, TRANSFER_MAGIC.size()) != TRANSFER_MAGIC)
            return "the header is none of this program";
        const std::string_view name = text.substr(HEADER_NAME_AT);
        if (options_.output.empty() && !is_safe_name(name))
            return "the sender's file name cannot be used; receive with --output FILE";
        const std::string target = options_.output.empty() ? std::string(name) : options_.output;
        struct stat about {};
        if (options_.output.empty() && ::lstat(target.c_str(), &about) == 0)
            return "there is a file " + target + " already; receive with --output FILE";
        if (!file_.create_beside(target))
            return system_says("cannot create a file beside " + target);
        target_ = target;
        bar_.emplace("receiving", number_at(record.subspan(HEADER_SIZE_AT)));
        return {};
    }

    std::string take_data(std::span<const appc_u8> part)
    {
        if (!file_.write(part))
            return system_says("cannot write " + target_);
        sum_.add(part);
        bytes_ += part.size();
        bar_->at(bytes_);
        return {};
    }

    std::string take_end(std::span<const appc_u8> record)
    {
        if (record.size() != END_BYTES)
            return "a wrong end record";
        if (number_at(record.subspan(1)) != bytes_)
            return "the size differs from what came";
        if (number_at(record.subspan(END_CRC_AT)) != sum_.value())
            return "the checksum differs: the file was changed on its way";
        ended_ = true;
        bar_.reset();
        return {};
    }

    const receive_options& options_;
    new_file file_;
    std::string target_;
    std::uint64_t bytes_ = 0;
    crc64 sum_;
    bool ended_ = false;
    std::optional<progress> bar_;
};

// Tells the sender why; what it does about it no longer matters here.
ending refuse(conversation& conv, const std::string& why)
{
    std::vector<appc_u8> record{static_cast<appc_u8>(record_kind::refusal)};
    record.insert(record.end(), why.begin(), why.end());
    outcome result = conv.send_error();
    if (result.ok())
        result = conv.send(record);
    if (result.ok())
        conv.deallocate(APPC_DEALLOC_FLUSH);
    return {EXIT_VERB_FAILED, printable(why) + "; nothing was kept"};
}

ending take_all(conversation& conv, const receive_options& options)
{
    reception file(options);
    std::vector<appc_u8> record(LONGEST_RECORD);
    while (true) {
        received got;
        const outcome result = conv.receive(record, got);
        if (!result.ok()) {
            ending problem = failed(result, options.limit);
            problem.message += " Nothing was kept.";
            return problem;
        }
        std::string why;
        if (got.has(APPC_WR_DATA_INCOMPLETE))
            why = "a record is too long";
        else if (got.has(APPC_WR_DATA_COMPLETE))
            why = file.take(std::span(record).first(got.bytes));
        if (why.empty() && got.has(APPC_WR_CONFIRM_DEALLOCATE)) {
            why = file.finish();
            if (why.empty()) {
                const outcome confirmed = conv.confirmed();
                return confirmed.ok() ? ending{EXIT_OK, file.summary(conv.partner_lu())}
                                      : failed(confirmed, options.limit);
            }
        } else if (why.empty() && got.has(APPC_WR_SEND | APPC_WR_CONFIRM | APPC_WR_CONFIRM_SEND)) {
            why = "the sender does not keep to the rules";
        }
        if (!why.empty())
            return refuse(conv, why);
    }
}

}  // namespace

ending receive_file(stopper& stop, const receive_options& options)
{
    struct stat about {};
    if (!options.output.empty() && ::stat(options.output.c_str(), &about) == 0 && !S_ISREG(about.st_mode))
        return {EXIT_USAGE, printable(options.output) + " is no regular file, so nothing can take its place"};
    conversation conv(stop, options.limit);
    const outcome result = conv.accept(options.tp);
    return result.ok() ? take_all(conv, options) : failed(result, options.limit);
}

}  // namespace tessaly::tool
