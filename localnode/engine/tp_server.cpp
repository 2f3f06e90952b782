#include "localnode/engine/tp_server.h"

#include "localnode/engine/attach_header.h"
#include "localnode/engine/clients.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/starts.h"

#include <tessaly/tp_server.h>

#include <cerrno>
#include <cstring>

namespace tessaly::node {

namespace {

struct query_answer {
    query_dload_rsp_datagram fixed;
    u8 elements[MOST_ELEMENT_BYTES];
};

u32 status_of(const start_found& found) noexcept
{
    if (found.of != nullptr)
        return QUERY_DLOAD_DONE;
    return found.code == APPC_SEC_ATTACH_GONE ? QUERY_DLOAD_ATTACH_GONE : QUERY_DLOAD_BAD_ATTACH;
}

}  // namespace

void query_start(node& n, client_id client, const query_dload_datagram& datagram)
{
    query_answer answer{};
    answer.fixed.correlator = datagram.correlator;
    answer.fixed.attach = datagram.start_id;
    u32 bytes = sizeof answer.fixed;
    const client_record* const of = find_client(n, client);
    if (of == nullptr || !of->rights.tp_server) {
        answer.fixed.status = EPERM;
    } else {
        const start_found found = find_start(n, client, datagram.start_id);
        answer.fixed.status = status_of(found);
        if (found.of != nullptr)
            bytes += put_elements(answer.elements, n, *found.of, of->rights.root);
    }
    answer.fixed.header = {static_cast<u16>(bytes), TPS_MSG_QUERY_DLOAD_RSP};
    send_datagram(n, client, std::span{reinterpret_cast<const u8*>(&answer), bytes});
}

bool is_pip_request(const frame& input) noexcept
{
    if (input.block.size() != sizeof(verb_signal) || !input.data.empty())
        return false;
    const auto& request = *reinterpret_cast<const verb_signal*>(input.block.data());
    return request.header.msg_len == sizeof request && request.header.kind == VERB_MESSAGE_KIND &&
           request.block.opcode == NAP_EXTRACT_PIP;
}

void extract_pip(node& n, path_record& path, const frame& input)
{
    verb_signal answer;
    std::memcpy(&answer, input.block.data(), sizeof answer);
    const auto [of, code] = find_start(n, path.client, answer.block.attach);
    std::span<const u8> pip;
    if (of != nullptr)
        pip = of->pip;
    const u16 primary = of != nullptr ? OK : code == APPC_SEC_ATTACH_GONE ? STATE_CHECK : PARAMETER_CHECK;
    answer.block.primary_rc = primary;
    answer.block.secondary_rc = code;
    answer.block.pip_len = static_cast<u16>(pip.size());
    pip = pip.first(std::min<std::size_t>(pip.size(), answer.block.pip_buf_len));

    answer.header.dest_corr = answer.header.src_corr;
    answer.header.src_corr = 0;
    answer.header.buf_len = sizeof answer;
    answer.header.msg_len = static_cast<u32>(sizeof answer + pip.size());
    u8* const frame = begin_message(n, path, answer.header.msg_len);
    if (frame == nullptr)
        return;
    std::memcpy(frame, &answer, sizeof answer);
    if (!pip.empty())
        std::memcpy(frame + sizeof answer, pip.data(), pip.size());
}

}  // namespace tessaly::node
