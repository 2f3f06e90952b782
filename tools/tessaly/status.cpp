// status: asks a running node for its status document. Nothing that comes from the socket is believed.
#include "tools/tessaly/commands.h"

#include "localnode/daemon/status_protocol.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tessaly::tool {

namespace {

constexpr std::size_t LONGEST_DOCUMENT = 64 * 1024 * 1024;

class node_socket {
public:
    node_socket() : fd_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    ~node_socket()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    node_socket(const node_socket&) = delete;
    node_socket& operator=(const node_socket&) = delete;

    int fd() const { return fd_; }

private:
    int fd_;
};

std::string chosen_socket(const status_options& options)
{
    constexpr std::string_view UNIX = "unix:";
    if (!options.socket.empty())
        return options.socket;
    const char* node = std::getenv("TESSALY_NODE");
    if (node != nullptr && std::string_view(node).starts_with(UNIX))
        return node + UNIX.size();
    return std::string(node::DEFAULT_SOCKET);
}

ending no_node(const std::string& path, int error)
{
    return {EXIT_NO_NODE,
            text_of("no node answers at %s: %s. Start one with tessaly-node, or name its socket with --socket.",
                    printable(path).c_str(), std::strerror(error))};
}

// Waits until the socket can be used so. Result: false when the time is up.
bool ready(int fd, short events, clock::time_point deadline)
{
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count();
        pollfd one{fd, events, 0};
        const int count = left > 0 ? ::poll(&one, 1, static_cast<int>(std::min<long long>(left, 1'000'000))) : 0;
        if (count > 0)
            return true;
        if (left <= 0)
            return false;
    }
}

// Sends the request and joins the answer's packets.
ending ask(int fd, const std::string& path, clock::time_point deadline, std::string& document)
{
    const ending late{EXIT_TIME_OUT,
                      "the node at " + printable(path) + " does not answer in time (--timeout); does it hang?"};
    if (!ready(fd, POLLOUT, deadline))
        return late;
    if (::send(fd, node::STATUS_REQUEST.data(), node::STATUS_REQUEST.size(), MSG_NOSIGNAL) < 0)
        return no_node(path, errno);

    std::string packet(node::STATUS_PACKET + 1, '\0');
    while (ready(fd, POLLIN, deadline)) {
        const ssize_t bytes = ::recv(fd, packet.data(), packet.size(), 0);
        if (bytes < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (bytes < 0)
            return no_node(path, errno);
        if (bytes == 0)
            return {};
        document.append(packet, 0, static_cast<std::size_t>(bytes));
        if (static_cast<std::size_t>(bytes) > node::STATUS_PACKET || document.size() > LONGEST_DOCUMENT)
            return {EXIT_VERB_FAILED, "the node's answer is larger than a status can be; is that a node's socket?"};
    }
    return late;
}

}  // namespace

ending status(const status_options& options, std::FILE* out)
{
    const auto deadline = clock::now() + options.limit;
    const std::string path = chosen_socket(options);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return {EXIT_USAGE, text_of("the path of a socket has 1 to %zu bytes", sizeof address.sun_path - 1)};
    std::ranges::copy(path, address.sun_path);

    const node_socket node;
    if (node.fd() < 0 || ::connect(node.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return no_node(path, errno);

    std::string document;
    if (ending problem = ask(node.fd(), path, deadline, document); problem.code != EXIT_OK)
        return problem;
    if (document.empty())
        return {EXIT_VERB_FAILED, "the node at " + printable(path) + " gave no answer; is it of this version?"};
    std::string text;
    if (!status_tables(document, text))
        return {EXIT_VERB_FAILED, "the answer of " + printable(path) + " is no status document: " + text};
    if (!options.json)
        document = text;
    else if (!document.ends_with('\n'))
        document += '\n';
    if (::isatty(::fileno(out)) == 1)  // valid JSON has no other bytes that a terminal obeys
        std::ranges::replace_if(
            document, [](char c) { return c < 0 || c == 0x7F; }, '.');
    std::fwrite(document.data(), 1, document.size(), out);
    return {};
}

}  // namespace tessaly::tool
