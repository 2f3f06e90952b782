#include "v6/vav/alias_map.h"

#include "runtime/node_runtime.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace tessaly {

alias_map_entry vav_alias_map[ALIAS_MAP_ENTRIES];
i32 vav_alias_count;
void* vav_ipv4_addr;
u16 vav_hostname;
const char* alias_map_directory = "/etc/opt/korvel/sna";

namespace {

struct close_file {
    void operator()(FILE* file) const noexcept { std::fclose(file); }
};
using open_file = std::unique_ptr<FILE, close_file>;

// One of the library's files, for reading; null when there is none.
open_file open_option(const char* name) noexcept
{
    char path[512];
    const std::size_t directory_bytes = std::strlen(alias_map_directory);
    const std::size_t name_bytes = std::strlen(name);
    if (directory_bytes + 1 + name_bytes + 1 > sizeof path)
        return nullptr;
    std::memcpy(path, alias_map_directory, directory_bytes);
    path[directory_bytes] = '/';
    std::memcpy(path + directory_bytes + 1, name, name_bytes + 1);
    return open_file{std::fopen(path, "re")};
}

constexpr u32 LINE_BYTES = 128;
constexpr u32 ENTRY_COLUMNS = 17;  // from, a separator, to
constexpr u32 TO_COLUMN = 9;

// One line, without its newline and padded with blanks to a whole entry. Longer lines go on as the next one.
bool read_line(FILE* file, char* line) noexcept
{
    if (std::fgets(line, LINE_BYTES, file) == nullptr)
        return false;
    std::size_t used = std::strlen(line);
    if (used > 0 && line[used - 1] == '\n')
        line[used - 1] = ' ';
    for (; used < ENTRY_COLUMNS; ++used)
        line[used] = ' ';
    return true;
}

void read_alias_map(FILE* file) noexcept
{
    constexpr char no_entry[] = "+                ";
    static_assert(sizeof no_entry == ENTRY_COLUMNS + 1);

    char line[LINE_BYTES];
    for (bool first = true; vav_alias_count < static_cast<i32>(ALIAS_MAP_ENTRIES) && read_line(file, line); first = false) {
        if (first && std::memcmp(line, no_entry, ENTRY_COLUMNS) == 0)
            continue;
        alias_map_entry& entry = vav_alias_map[vav_alias_count++];
        std::memcpy(entry.from, line, LU_ALIAS_BYTES);
        std::memcpy(entry.to, line + TO_COLUMN, LU_ALIAS_BYTES);
    }
}

constexpr u32 NO_WILDCARD = LU_ALIAS_BYTES;

u32 wildcard_in(const char* alias) noexcept
{
    return static_cast<u32>(std::find(alias, alias + LU_ALIAS_BYTES, '*') - alias);
}

// Keeps the alias's rest behind the start of the replacement, cut or padded to the width of an alias.
void replace_start(u8* alias, u32 matched, const char* to, u32 kept) noexcept
{
    u8 mapped[LU_ALIAS_BYTES];
    std::memset(mapped, ' ', LU_ALIAS_BYTES);
    std::memcpy(mapped, to, kept);
    std::memcpy(mapped + kept, alias + matched, LU_ALIAS_BYTES - std::max(kept, matched));
    std::memcpy(alias, mapped, LU_ALIAS_BYTES);
}

}  // namespace

void vav_init_lu_alias_map() noexcept
{
    constexpr u32 ipv4_family = 2;
    vav_alias_count = 0;
    vav_ipv4_addr = nullptr;
    vav_hostname = 0;
    if (const open_file map = open_option("lualiasmap.txt"))
        read_alias_map(map.get());
    if (open_option("tpnameipv4"))
        vsb_ip_get_addr(BoxName, &vav_ipv4_addr, ipv4_family);
    else if (open_option("tpnamehost"))
        vav_hostname = 1;
}

bool map_alias(u8* alias) noexcept
{
    constexpr char barred[] = "-       ";
    static_assert(sizeof barred == LU_ALIAS_BYTES + 1);

    for (const alias_map_entry* entry = vav_alias_map; entry != vav_alias_map + vav_alias_count; ++entry) {
        const bool exact = std::memcmp(alias, entry->from, LU_ALIAS_BYTES) == 0;
        const u32 matched = wildcard_in(entry->from);
        if (!exact && (matched == NO_WILDCARD || std::memcmp(alias, entry->from, matched) != 0))
            continue;

        if (std::memcmp(entry->to, barred, LU_ALIAS_BYTES) == 0)
            return false;
        const u32 kept = wildcard_in(entry->to);
        if (exact || kept == NO_WILDCARD)
            std::memcpy(alias, entry->to, LU_ALIAS_BYTES);
        else
            replace_start(alias, matched, entry->to, kept);
        return true;
    }
    return true;
}

}  // namespace tessaly
