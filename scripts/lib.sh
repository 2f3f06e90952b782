# shellcheck shell=bash disable=SC2034
# Sourced by the scripts: where the checkout is, how they speak, which Debian packages the build needs.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# A compiler for i386 on any Debian machine, the build tools, and GoogleTest's source. No foreign architecture is needed.
packages=(g++-multilib cmake ninja-build googletest)

say()
{
    printf '== %s\n' "$*"
}

die()
{
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}
