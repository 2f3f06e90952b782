// status, against a node that answers what the test says.
#include "localnode/daemon/status_protocol.h"
#include "tests/tool/support.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tessaly::tool {

class status_of_a_node : public ToolTest {
protected:
    status_of_a_node() : listener(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(std::string_view("node"), address.sun_path);
        EXPECT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener, 1), 0);
    }
    ~status_of_a_node() override { ::close(listener); }

    // The node's side of one request: answers it with these packets and closes.
    auto answering(std::vector<std::string> packets)
    {
        return in_thread([this, packets = std::move(packets)] {
            const int client = ::accept(listener, nullptr, nullptr);
            char request[100];
            const ssize_t bytes = ::recv(client, request, sizeof request, 0);
            for (const std::string& packet : packets)
                ::send(client, packet.data(), packet.size(), MSG_NOSIGNAL);
            ::close(client);
            return std::string(request, static_cast<std::size_t>(std::max<ssize_t>(bytes, 0)));
        });
    }

    // Asks for the status; what is printed comes by `output`.
    ending ask(bool json)
    {
        char* text = nullptr;
        std::size_t size = 0;
        std::FILE* out = ::open_memstream(&text, &size);
        const ending end = status({.socket = "node", .json = json, .limit = limit}, out);
        std::fclose(out);
        output.assign(text, size);
        std::free(text);
        return end;
    }

    int listener;
    clock::duration limit = std::chrono::minutes(1);
    std::string output;
};

constexpr char GOOD[] = R"({"node":"here","pid":7,"uptime_seconds":60,"version":"7.0.0","clients":[
{"id":1,"pid":8,"uid":1000,"paths":2,"queued_bytes":0}],"lus":[{"alias":"A\u001b[2J","name":"TESSALY.A"},{"alias":{}}, 3],
"tps":[],"conversations":[{"id":1,"tp":2,"state":"send","partner_lu":"B","tp_name":["nested"],"mode":""}],
"tp_servers":[{"client":1,"servers":1,
"definitions":2,"starts":1}],"tp_definitions":[{"id":5,"client":1,"server":3,"tp_name":"T","lu":"","partner_lu":"",
"type":"queued"}],"starts":[{"id":9,"client":1,"tp_name":"T","lu":"A","partner_lu":"N.B",
"state":"ASKED"}],
"attaches_waiting":1,"tps_waiting":0,"registered_names":-5,"more":{}})";

TEST_F(status_of_a_node, is_shown_as_tables_without_control_characters_or_as_it_came)
{
    const std::string document = GOOD;
    for (const bool json : {false, true}) {
        auto node = answering({document.substr(0, 50), document.substr(50)});
        const ending end = ask(json);
        EXPECT_EQ(end.code, EXIT_OK) << end.message;
        EXPECT_EQ(node.get(), node::STATUS_REQUEST);
        EXPECT_EQ(output, json ? document + "\n" : R"(node here, version 7.0.0, process 7, up for 60 s

CLIENT  PID  UID   PATHS  QUEUED
1       8    1000  2      0

LU     FULL NAME
A.[2J  TESSALY.A
?      ?
?      ?

no tps

CONVERSATION  TP  STATE  PARTNER LU  TP NAME  MODE
1             2   send   B           ?

CLIENT  TP SERVERS  DEFINITIONS  STARTS
1       1           2            1

DEFINITION  CLIENT  SERVER  TP NAME  LU   PARTNER LU  TYPE
5           1       3       T        any  any         queued

START  CLIENT  TP NAME  LU  PARTNER LU  STATE
9      1       T        A   N.B         ASKED

waiting: attaches 1, TPs 0; registered names -5
)");
    }
}

TEST_F(status_of_a_node, that_is_no_status_is_refused_and_nothing_of_it_printed)
{
    const std::string full_packet(node::STATUS_PACKET, '[');
    const std::pair<std::vector<std::string>, const char*> answers[] = {
        {{}, "gave no answer"},
        {{"\x1B[2Jnonsense"}, "no JSON"},
        {{std::string(GOOD, 100)}, "no JSON"},
        {{"{\"node\": \"\xFF\"}"}, "no JSON"},
        {{full_packet, full_packet, full_packet}, "no JSON"},
        {{full_packet + "["}, "larger than a status can be"},
        {{"[1, 2]"}, "no JSON object"},
        {{R"({"clients": {}, "lus": [], "tps": [], "conversations": []})"}, "no list \"clients\""},
        {{R"({"clients": [], "lus": [], "tps": []})"}, "no list \"conversations\""},
    };
    for (const auto& [packets, reason] : answers) {
        SCOPED_TRACE(reason);
        auto node = answering(packets);
        const ending end = ask(true);
        EXPECT_EQ(end.code, EXIT_VERB_FAILED);
        EXPECT_NE(end.message.find(reason), std::string::npos) << end.message;
        EXPECT_EQ(output, "");
    }
}

TEST_F(status_of_a_node, that_does_not_answer_is_a_time_out)
{
    limit = std::chrono::milliseconds(20);
    const ending end = ask(false);  // the listening socket takes the connection, and nobody reads
    EXPECT_EQ(end.code, EXIT_TIME_OUT) << end.message;
}

}  // namespace tessaly::tool
