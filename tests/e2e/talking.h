// Programs for the end-to-end stories: a program has a TP and one conversation, and issues its verbs through the library as any
// application does, waiting or not.
#pragma once

#include "examples/names.h"

#include <tessaly/appc.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <ostream>
#include <string>

namespace talking {

struct codes {
    appc_u16 primary;
    appc_u32 secondary;
    bool operator==(const codes&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const codes& shown)
{
    return out << std::hex << "primary 0x" << shown.primary << " secondary 0x" << shown.secondary << std::dec;
}

inline constexpr codes ok{APPC_OK, 0};

template <typename Block>
codes codes_of(const Block& vcb)
{
    return {vcb.primary_rc, vcb.secondary_rc};
}

template <typename Block>
codes run(Block& vcb)
{
    APPC(&vcb);
    return codes_of(vcb);
}

// Set once, by another thread; may be destroyed as soon as it has been seen.
class completion_flag {
public:
    void set()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++times_;
        changed_.notify_all();
    }

    int times()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return times_;
    }

    // The limit only ends a test that has failed.
    bool wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60), [this] { return times_ != 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int times_ = 0;
};

// A verb under way. Its block lives here until the callback has come, which must happen once.
template <typename Block>
class issued {
public:
    explicit issued(const Block& filled) : vcb(filled)
    {
        if (APPC_Async(&vcb, completed, reinterpret_cast<appc_u32>(this)) == APPC_COMPLETE)
            done_.set();
    }
    issued(const issued&) = delete;
    issued& operator=(const issued&) = delete;
    ~issued() { EXPECT_EQ(done_.times(), 1) << "completions of verb 0x" << std::hex << vcb.opcode; }

    bool finished() { return done_.times() != 0; }

    codes outcome()
    {
        EXPECT_TRUE(done_.wait()) << "verb 0x" << std::hex << vcb.opcode << " never completed";
        return codes_of(vcb);
    }

    Block vcb;

private:
    static void completed(void*, appc_u8*, appc_u32, appc_u32 corr) { reinterpret_cast<issued*>(corr)->done_.set(); }

    completion_flag done_;
};

struct received {
    codes outcome;
    appc_u16 what;
    std::string data;
};

class program {
public:
    // Starts a TP on a local LU, which may fail.
    codes try_to_start(const char* lu_alias, const char* tp_name)
    {
        appc_tp_started started{};
        started.opcode = APPC_OP_TP_STARTED;
        set_alias(started.lu_alias, lu_alias);
        set_ebcdic(started.tp_name, sizeof started.tp_name, tp_name);
        const codes outcome = run(started);
        std::memcpy(tp_id_, started.tp_id, sizeof tp_id_);
        return outcome;
    }

    static program start(const char* lu_alias, const char* tp_name)
    {
        program self;
        EXPECT_EQ(self.try_to_start(lu_alias, tp_name), ok) << "TP_STARTED";
        return self;
    }

    static appc_receive_allocate accepting(const char* tp_name)
    {
        appc_receive_allocate vcb{};
        vcb.opcode = APPC_OP_RECEIVE_ALLOCATE;
        set_ebcdic(vcb.tp_name, sizeof vcb.tp_name, tp_name);
        return vcb;
    }

    // Waits for a partner, which may fail.
    codes try_to_accept(const char* tp_name)
    {
        appc_receive_allocate vcb = accepting(tp_name);
        const codes outcome = run(vcb);
        *this = accepted(vcb);
        return outcome;
    }

    static program accept(const char* tp_name)
    {
        program self;
        EXPECT_EQ(self.try_to_accept(tp_name), ok) << "RECEIVE_ALLOCATE";
        return self;
    }

    static program accepted(const appc_receive_allocate& vcb)
    {
        program self;
        std::memcpy(self.tp_id_, vcb.tp_id, sizeof self.tp_id_);
        self.conv_id_ = vcb.conv_id;
        return self;
    }

    template <typename Block>
    Block verb(appc_u16 opcode) const
    {
        Block vcb{};
        vcb.opcode = opcode;
        vcb.opext = APPC_MAPPED_CONVERSATION;
        std::memcpy(vcb.tp_id, tp_id_, sizeof tp_id_);
        if constexpr (requires { vcb.conv_id; })
            vcb.conv_id = conv_id_;
        return vcb;
    }

    appc_allocate_format_0 allocating(const char* partner_lu, const char* tp_name,
                                      appc_u8 sync_level = APPC_SYNC_CONFIRM) const
    {
        auto vcb = verb<appc_allocate_format_0>(APPC_OP_ALLOCATE);
        vcb.conv_type = APPC_MAPPED;
        vcb.sync_level = sync_level;
        set_alias(vcb.plu_alias, partner_lu);
        set_ebcdic(vcb.mode_name, sizeof vcb.mode_name, "BATCH");
        set_ebcdic(vcb.tp_name, sizeof vcb.tp_name, tp_name);
        return vcb;
    }

    codes try_to_allocate(appc_allocate_format_0&& vcb)
    {
        const codes outcome = run(vcb);
        conv_id_ = vcb.conv_id;
        return outcome;
    }

    codes try_to_allocate(const char* partner_lu, const char* tp_name, appc_u8 sync_level = APPC_SYNC_CONFIRM)
    {
        return try_to_allocate(allocating(partner_lu, tp_name, sync_level));
    }

    void allocate(const char* partner_lu, const char* tp_name, appc_u8 sync_level = APPC_SYNC_CONFIRM)
    {
        EXPECT_EQ(try_to_allocate(partner_lu, tp_name, sync_level), ok) << "ALLOCATE";
    }

    appc_send_data sending(const std::string& data, appc_u8 type = APPC_SEND_NONE) const
    {
        auto vcb = verb<appc_send_data>(APPC_OP_SEND_DATA);
        vcb.dptr = data.data();
        vcb.dlen = static_cast<appc_u16>(data.size());
        vcb.type = type;
        return vcb;
    }

    codes send(const std::string& data, appc_u8 type = APPC_SEND_NONE) const
    {
        auto vcb = sending(data, type);
        return run(vcb);
    }

    appc_receive receiving(std::string& buffer, appc_u16 opcode = APPC_OP_RECEIVE_AND_WAIT) const
    {
        auto vcb = verb<appc_receive>(opcode);
        vcb.dptr = buffer.data();
        vcb.max_len = static_cast<appc_u16>(buffer.size());
        return vcb;
    }

    received receive(std::size_t max_len = 0xFFFF, appc_u8 rtn_status = 0, appc_u16 opcode = APPC_OP_RECEIVE_AND_WAIT) const
    {
        std::string buffer(max_len, '\0');
        auto vcb = receiving(buffer, opcode);
        vcb.rtn_status = rtn_status;
        const codes outcome = run(vcb);
        buffer.resize(vcb.dlen);
        return {outcome, vcb.what_rcvd, buffer};
    }

    // One record and the turn, which may come together or one after the other.
    received receive_with_turn() const
    {
        received whole = receive(0xFFFF, 1);
        while (whole.outcome == ok && (whole.what & APPC_WR_SEND) == 0) {
            const received next = receive(0xFFFF, 1);
            whole = {next.outcome, static_cast<appc_u16>(whole.what | next.what), whole.data + next.data};
        }
        return whole;
    }

    // A verb that has no fields of its own.
    codes simple(appc_u16 opcode) const
    {
        auto vcb = verb<appc_confirm>(opcode);
        return run(vcb);
    }

    codes confirm() const { return simple(APPC_OP_CONFIRM); }
    codes confirmed() const { return simple(APPC_OP_CONFIRMED); }

    codes deallocate(appc_u8 type = APPC_DEALLOC_FLUSH) const
    {
        auto vcb = verb<appc_deallocate>(APPC_OP_DEALLOCATE);
        vcb.dealloc_type = type;
        return run(vcb);
    }

    codes end() const
    {
        auto vcb = verb<appc_tp_ended>(APPC_OP_TP_ENDED);
        return run(vcb);
    }

private:
    appc_u8 tp_id_[8] = {};
    appc_u32 conv_id_ = 0;
};

}  // namespace talking
