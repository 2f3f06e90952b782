// The machine's name and addresses.
#include "localnode/runtime/never_destroyed.h"

#include "common/types.h"
#include "runtime/node_runtime.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <map>
#include <string>

namespace tessaly::runtime {

namespace {

constexpr u32 IPV4 = 2;

struct address_record {
    u32 family;
    u32 ipv4;  // network byte order
};
static_assert(offsetof(address_record, ipv4) == 4);

// Handed out, so kept for ever; the library asks for one machine, its own.
constinit never_destroyed<std::map<std::string, address_record>*> known;

bool resolve(const char* host, u32& ipv4) noexcept
{
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo(host, nullptr, &wanted, &found) != 0)
        return false;
    sockaddr_in address;
    std::memcpy(&address, found->ai_addr, sizeof address);
    ipv4 = address.sin_addr.s_addr;
    freeaddrinfo(found);
    return true;
}

}  // namespace

}  // namespace tessaly::runtime

extern "C" char BoxName[65];
char BoxName[65] = "localhost";

// The short name: where programs live is a question for the machine alone, not for its domain.
[[gnu::constructor]] static void read_box_name() noexcept
{
    char name[sizeof BoxName] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return;
    name[std::strcspn(name, ".")] = '\0';
    if (name[0] != '\0')
        std::memcpy(BoxName, name, sizeof BoxName);
}

using namespace tessaly::runtime;

extern "C" uint16_t vsb_ip_get_addr(const char* host, void** out, uint32_t family)
try {
    constexpr uint16_t NOT_FOUND = 1;
    if (host == nullptr || out == nullptr || family != IPV4)
        return NOT_FOUND;
    if (*known == nullptr)
        *known = new std::map<std::string, address_record>;
    const auto before = (*known)->find(host);
    if (before != (*known)->end()) {
        *out = &before->second;
        return 0;
    }
    tessaly::u32 ipv4 = 0;
    if (!resolve(host, ipv4))
        return NOT_FOUND;
    *out = &(*known)->emplace(host, address_record{IPV4, ipv4}).first->second;
    return 0;
} catch (const std::exception&) {
    return 1;
}
