// Sends a file over a mapped conversation, record by record with confirmations, receives it on the other side and compares the
// two byte for byte. Both programs run in this process, each in its own thread; what they do is printed verb by verb.
//
//     send_file [FILE]
//
// Exit status: 0 the copy is identical, 1 a verb failed or the copy differs, 2 the file cannot be read.

#include "names.h"

#include <tessaly/appc.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

enum class side { sender, receiver };

const char* name_of(appc_u16 primary_rc)
{
    switch (primary_rc) {
    case APPC_OK: return "OK";
    case APPC_DEALLOC_NORMAL: return "DEALLOC_NORMAL";
    case APPC_PARAMETER_CHECK: return "PARAMETER_CHECK";
    case APPC_STATE_CHECK: return "STATE_CHECK";
    case APPC_ALLOCATION_ERROR: return "ALLOCATION_ERROR";
    case APPC_DEALLOC_ABEND: return "DEALLOC_ABEND";
    case APPC_CONV_FAILURE_NO_RETRY: return "CONV_FAILURE_NO_RETRY";
    case APPC_COMMS_SUBSYSTEM_NOT_LOADED: return "COMMS_SUBSYSTEM_NOT_LOADED";
    default: return "an error";
    }
}

// Prints one line per verb, the sender's in the first column, the receiver's in the second. A verb that does not wait for the
// partner is issued and told of in one step, so that cause stands before effect.
class storyteller {
public:
    void title(const std::string& text)
    {
        std::printf("%s\n\n", text.c_str());
        line("sender", "receiver", "what happened");
        line(std::string(column, '-'), std::string(column, '-'), std::string(44, '-'));
    }

    void tell(side who, const char* verb, appc_u16 primary_rc, const std::string& meaning)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        tell_locked(who, std::string(verb) + ": " + name_of(primary_rc), meaning);
    }

    // Nothing else is told of between the call and the line.
    template <typename Block>
    void issue_and_tell(side who, const char* verb, Block& vcb, const std::string& meaning)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        APPC(&vcb);
        if (!meaning.empty() && vcb.primary_rc == APPC_OK)
            tell_locked(who, std::string(verb) + ": OK", meaning);
    }

    void remark(side who, const std::string& meaning)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        tell_locked(who, "...", meaning);
    }

private:
    static constexpr std::size_t column = 32;

    static void tell_locked(side who, const std::string& what, const std::string& meaning)
    {
        line(who == side::sender ? what : "", who == side::receiver ? what : "", meaning);
    }

    static void line(const std::string& left, const std::string& right, const std::string& meaning)
    {
        std::printf("%-32s %-32s %s\n", left.c_str(), right.c_str(), meaning.c_str());
        std::fflush(stdout);
    }

    std::mutex mutex_;
};

storyteller story;

[[noreturn]] void give_up(const char* verb, const appc_header& header)
{
    std::fprintf(stderr, "%s failed: %s (primary_rc 0x%04X, secondary_rc 0x%08X)\n", verb, name_of(header.primary_rc),
                 static_cast<unsigned>(header.primary_rc), header.secondary_rc);
    std::_Exit(1);  // the other program may be waiting
}

// One program's end of a conversation.
struct program {
    side who;
    appc_u8 tp_id[8];
    appc_u32 conv_id;

    template <typename Block>
    Block block(appc_u16 opcode) const
    {
        Block vcb{};
        vcb.opcode = opcode;
        vcb.opext = APPC_MAPPED_CONVERSATION;
        std::memcpy(vcb.tp_id, tp_id, sizeof tp_id);
        if constexpr (!std::is_same_v<Block, appc_tp_ended>)
            vcb.conv_id = conv_id;
        return vcb;
    }

    // Runs a verb that must succeed and does not wait for the partner.
    template <typename Block>
    void run(const char* verb, Block& vcb, const std::string& meaning) const
    {
        story.issue_and_tell(who, verb, vcb, meaning);
        check(verb, vcb);
    }

    // Runs a verb that completes when the partner has done its part.
    template <typename Block>
    void run_with_partner(const char* verb, Block& vcb, const std::string& meaning) const
    {
        APPC(&vcb);
        check(verb, vcb);
        if (!meaning.empty())
            story.tell(who, verb, vcb.primary_rc, meaning);
    }

    template <typename Block>
    static void check(const char* verb, const Block& vcb)
    {
        if (vcb.primary_rc != APPC_OK)
            give_up(verb, reinterpret_cast<const appc_header&>(vcb));
    }

    void end() const
    {
        auto ended = block<appc_tp_ended>(APPC_OP_TP_ENDED);
        run("TP_ENDED", ended, "the program ends");
    }
};

// Which records are worth a line: a long file's middle is told of once.
class record_filter {
public:
    explicit record_filter(std::size_t records) : records_(records) {}

    bool shown(std::size_t index) const { return records_ <= 8 || index < 3 || index + 1 == records_; }
    bool first_hidden(std::size_t index) const { return !shown(index) && index == 3; }

private:
    std::size_t records_;
};

std::string plural(std::size_t count, const char* noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// A file of some size makes several records; each is confirmed before the next is sent.
std::size_t record_bytes_for(std::size_t file_bytes)
{
    constexpr std::size_t largest = 32 * 1024;
    return std::clamp<std::size_t>((file_bytes + 3) / 4, 1, largest);
}

program start_sender()
{
    program self{side::sender, {}, 0};
    appc_tp_started started{};
    started.opcode = APPC_OP_TP_STARTED;
    set_alias(started.lu_alias, "OFFICE");
    set_ebcdic(started.tp_name, sizeof started.tp_name, "SENDFILE");
    self.run("TP_STARTED", started, "a program begins on the logical unit OFFICE");
    std::memcpy(self.tp_id, started.tp_id, sizeof self.tp_id);

    auto allocate = self.block<appc_allocate_format_0>(APPC_OP_ALLOCATE);
    allocate.conv_type = APPC_MAPPED;
    allocate.sync_level = APPC_SYNC_CONFIRM;
    set_alias(allocate.plu_alias, "ARCHIVE");
    set_ebcdic(allocate.mode_name, sizeof allocate.mode_name, "BATCH");
    set_ebcdic(allocate.tp_name, sizeof allocate.tp_name, "RECVFILE");
    self.run("ALLOCATE", allocate, "a conversation with RECVFILE on ARCHIVE");
    self.conv_id = allocate.conv_id;
    return self;
}

void send_file(const std::vector<char>& file)
{
    const program self = start_sender();
    const std::size_t record_bytes = record_bytes_for(file.size());
    const std::size_t records = std::max<std::size_t>(1, (file.size() + record_bytes - 1) / record_bytes);
    const record_filter filter(records);

    for (std::size_t index = 0; index < records; ++index) {
        const std::size_t from = index * record_bytes;
        const std::size_t bytes = std::min(record_bytes, file.size() - from);
        const std::string number = std::to_string(index + 1) + " of " + std::to_string(records);
        if (filter.first_hidden(index))
            story.remark(self.who, "and " + std::to_string(records - 4) + " more records, each confirmed");

        auto send = self.block<appc_send_data>(APPC_OP_SEND_DATA);
        send.dptr = file.data() + from;
        send.dlen = static_cast<appc_u16>(bytes);
        self.run("SEND_DATA", send, filter.shown(index) ? "record " + number + ", " + plural(bytes, "byte") : "");
        auto confirm = self.block<appc_confirm>(APPC_OP_CONFIRM);
        self.run_with_partner("CONFIRM", confirm, filter.shown(index) ? "record " + number + " is confirmed" : "");
    }
    auto deallocate = self.block<appc_deallocate>(APPC_OP_DEALLOCATE);
    deallocate.dealloc_type = APPC_DEALLOC_FLUSH;
    self.run("DEALLOCATE", deallocate, "the sender ends the conversation");
    self.end();
}

program accept_conversation()
{
    program self{side::receiver, {}, 0};
    appc_receive_allocate accept{};
    accept.opcode = APPC_OP_RECEIVE_ALLOCATE;
    set_ebcdic(accept.tp_name, sizeof accept.tp_name, "RECVFILE");
    self.run_with_partner("RECEIVE_ALLOCATE", accept, "a program begins on ARCHIVE and accepts the conversation");
    std::memcpy(self.tp_id, accept.tp_id, sizeof self.tp_id);
    self.conv_id = accept.conv_id;
    return self;
}

std::vector<char> receive_file(std::size_t expected_records)
{
    const program self = accept_conversation();
    const record_filter filter(expected_records);
    std::vector<char> copy;
    std::vector<char> buffer(0xFFFF);
    std::size_t records = 0;

    while (true) {
        auto receive = self.block<appc_receive_and_wait>(APPC_OP_RECEIVE_AND_WAIT);
        receive.dptr = buffer.data();
        receive.max_len = static_cast<appc_u16>(buffer.size());
        APPC(&receive);
        if (receive.primary_rc == APPC_DEALLOC_NORMAL) {
            story.tell(self.who, "RECEIVE_AND_WAIT", receive.primary_rc, "nothing more will come");
            self.end();
            return copy;
        }
        program::check("RECEIVE_AND_WAIT", receive);
        if (receive.what_rcvd & APPC_WR_DATA_COMPLETE) {
            copy.insert(copy.end(), buffer.begin(), buffer.begin() + receive.dlen);
            if (filter.shown(records++))
                story.tell(self.who, "RECEIVE_AND_WAIT", receive.primary_rc, plural(receive.dlen, "byte") + " received");
        }
        if (receive.what_rcvd & APPC_WR_CONFIRM) {
            auto confirmed = self.block<appc_confirmed>(APPC_OP_CONFIRMED);
            self.run("CONFIRMED", confirmed, filter.shown(records - 1) ? "the receiver has all of it so far" : "");
        }
    }
}

// Result: whether all of it could be read; else errno says why.
bool read_file(const char* path, std::vector<char>& content)
{
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr)
        return false;
    char part[64 * 1024];
    std::size_t bytes = 0;
    while ((bytes = std::fread(part, 1, sizeof part, file)) > 0)
        content.insert(content.end(), part, part + bytes);
    const bool complete = std::ferror(file) == 0;
    const int error = errno;
    std::fclose(file);
    errno = error;
    return complete;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2) {
        std::fputs("usage: send_file [FILE]\n"
                   "Sends FILE (README.md) from one program to another and compares the copy.\n",
                   stderr);
        return 2;
    }
    const char* path = argc == 2 ? argv[1] : "README.md";
    std::vector<char> file;
    if (!read_file(path, file)) {
        std::fprintf(stderr, "send_file: cannot read %s: %s\n", path, std::strerror(errno));
        return 2;
    }

    story.title(std::string("Sending ") + path + ", " + plural(file.size(), "byte") +
                ", over a mapped conversation of sync level CONFIRM.");
    const std::size_t records = std::max<std::size_t>(1, (file.size() + record_bytes_for(file.size()) - 1) /
                                                             record_bytes_for(file.size()));
    std::vector<char> copy;
    std::thread receiver([&] { copy = receive_file(records); });
    std::thread sender([&] { send_file(file); });
    sender.join();
    receiver.join();

    if (copy != file) {
        std::printf("\nThe copy differs: %zu bytes sent, %zu received.\n", file.size(), copy.size());
        return 1;
    }
    std::printf("\nThe copy is identical, byte for byte: %s.\n", plural(copy.size(), "byte").c_str());
    return 0;
}
