// The header's fields stand in the order of the SNA formats.
#include "localnode/engine/attach_header.h"

#include <cstring>

namespace tessaly::node {

namespace {

constexpr u8 FMH_TYPE = 5;
constexpr u16 ATTACH_COMMAND = 0x02FF;
constexpr u8 ALREADY_VERIFIED = 0x80;  // the user, by the sender; no password is needed
constexpr u8 FIXED_PARAMETERS = 3;     // bytes of them
constexpr u8 BASIC_RESOURCE = 0xD0;
constexpr u8 MAPPED_RESOURCE = 0xD1;
constexpr u8 SYNC_CONFIRM = 0x40;

enum security_subfield : u8 { PASSWORD = 1, USER_ID = 2 };

// Bytes one behind the other. Whoever makes it knows that there is room.
class writer {
public:
    explicit writer(u8* to) noexcept : begin_(to), at_(to) {}

    void put(u8 byte) noexcept { *at_++ = byte; }
    void put(const u8* bytes, u32 count) noexcept
    {
        std::memcpy(at_, bytes, count);
        at_ += count;
    }
    // A byte with the length of what `fill` puts behind it.
    template <typename Fill>
    void counted(Fill fill) noexcept
    {
        u8* const length = at_++;
        fill();
        *length = static_cast<u8>(at_ - length - 1);
    }
    u32 bytes() const noexcept { return static_cast<u32>(at_ - begin_); }

private:
    u8* const begin_;
    u8* at_;
};

template <typename Name>
void put_name(writer& to, const Name& name) noexcept
{
    to.put(name.data(), static_cast<u32>(std::ranges::find(name, EBCDIC_BLANK) - name.begin()));
}

void put_security(writer& to, const attach& about) noexcept
{
    const auto subfield = [&](security_subfield type, const user_name& content) {
        if (!is_blank(content))
            to.counted([&] { to.put(type), put_name(to, content); });
    };
    if (about.security == APPC_SECURITY_PGM)
        subfield(PASSWORD, about.password);
    subfield(USER_ID, about.side->user);
}

// A length that no name has comes from a program that made the identifier itself.
void put_luw(writer& to, const appc_luw_id& luw) noexcept
{
    const u32 name_bytes = std::min<u32>(luw.fq_lu_name_len, sizeof luw.fq_lu_name);
    if (name_bytes != 0)
        to.put(&luw.fq_lu_name_len, 1 + name_bytes + sizeof luw.instance + sizeof luw.sequence);
}

u32 put_header(u8* to, const attach& about, bool security) noexcept
{
    const conv_side& side = *about.side;
    const bool verified = about.security == APPC_SECURITY_SAME && !is_blank(side.user);
    writer header{to};
    header.put(0);
    header.put(FMH_TYPE);
    header.put(ATTACH_COMMAND >> 8);
    header.put(ATTACH_COMMAND & 0xFF);
    header.put(static_cast<u8>((verified ? ALREADY_VERIFIED : 0) | (about.pip.empty() ? 0 : FMH5_PIP_PRESENT)));
    header.put(FIXED_PARAMETERS);
    header.put(side.conv_type == APPC_MAPPED ? MAPPED_RESOURCE : BASIC_RESOURCE);
    header.put(0);
    header.put(side.sync_level == APPC_SYNC_NONE ? 0 : SYNC_CONFIRM);
    header.counted([&] { put_name(header, side.program); });
    header.counted([&] {
        if (security)
            put_security(header, about);
    });
    header.counted([&] { put_luw(header, side.luw); });
    header.counted([&] { header.put(reinterpret_cast<const u8*>(&side.session), sizeof side.session); });
    to[0] = static_cast<u8>(header.bytes());
    return header.bytes();
}

// The longest that put_header makes fits its length byte.
constexpr std::size_t MOST_SECURITY_BYTES = 2 * (2 + sizeof(user_name));
static_assert(FMH5_FIXED_BYTES + 1 + TP_NAME_BYTES + 1 + MOST_SECURITY_BYTES + 1 + sizeof(appc_luw_id) + 1 + sizeof(u32) <=
              MOST_HEADER_BYTES);

}  // namespace

u32 put_elements(u8 (&to)[MOST_ELEMENT_BYTES], const node& n, const attach& about, bool security) noexcept
{
    const conv_side& side = *about.side;
    writer elements{to};
    const auto element = [&](ltv_type type, const u8* value, u32 bytes) {
        u8 header[LTV_HEADER_BYTES];
        put_big_endian_16(header, static_cast<u16>(sizeof header + bytes));
        put_big_endian_16(header + 2, type);
        elements.put(header, sizeof header);
        elements.put(value, bytes);
    };
    const fq_lu_name partner = n.lus.full_name(side.partner_lu);
    u8 header[MOST_HEADER_BYTES];
    const u32 header_bytes = put_header(header, about, security);
    element(LTV_LU_ALIAS, side.local_lu.data(), sizeof side.local_lu);
    element(LTV_FQPLU_NAME, partner.data(), sizeof partner);
    element(LTV_MODE_NAME, side.mode.data(), sizeof side.mode);
    element(LTV_ATTACH_HEADER, header, header_bytes);
    return elements.bytes();
}

}  // namespace tessaly::node
