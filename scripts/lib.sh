# shellcheck shell=bash disable=SC2034
# Sourced by the scripts: where the checkout is, how they speak, which Debian packages the build needs.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# A compiler for i386 on any Debian machine, the build tools, GoogleTest's source, and the libraries of the node and
# the tool, all headers. No foreign architecture is needed.
packages=(g++-multilib cmake ninja-build googletest libcli11-dev libtoml11-dev nlohmann-json3-dev)

say()
{
    printf '== %s\n' "$*"
}

die()
{
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}
