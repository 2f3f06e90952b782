#!/bin/bash
# exports.sh LIBRARY MAP - holds the dynamic symbols and the flags of the built verb library against what it promises: it exports
# what the map lists and nothing else, takes only the runtime contract and harmless parts of the C and C++ libraries, and is hard
# to attack. Prints each difference; exits 1 when there is any.
set -euo pipefail
export LC_ALL=C

library=$1
map=$2
failed=0

complain()
{
    echo "$1"
    failed=1
}

# --- exports -----------------------------------------------------------------------------------------------------------------

node=$(sed -n 's/^\([A-Z0-9_]*\) {.*/\1/p' "$map")
wanted=$(sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);.*/\1/p' "$map" | sort)
# The version itself is an absolute symbol of its own name.
defined=$(nm -D --defined-only --with-symbol-versions "$library" | awk -v node="$node" '!($2 == "A" && $3 ~ "^" node) {print $3}' | sort)

[ -n "$node" ] || complain "the map $map names no version"
[ -n "$wanted" ] || complain "the map $map lists nothing"
for name in $(comm -23 <(echo "$wanted") <(echo "$defined" | sed 's/@.*//' | sort)); do
    complain "not exported, though in the map: $name"
done
for name in $(comm -13 <(echo "$wanted") <(echo "$defined" | sed 's/@.*//' | sort)); do
    complain "exported, though not in the map: $name"
done
for name in $(echo "$defined" | grep -v "@@$node\$" || true); do
    complain "not under version $node: $name"
done

# --- what it takes from others -----------------------------------------------------------------------------------------------

contract='^(vpm_|vsm_|vtm_|vsb_|nba_|trc_|com_trc_)[a-z0-9_]+$|^(v0_assert|sepuapi_init|ptrc|trc_api|BoxName)$'
system='@(GLIBC|GLIBCXX|CXXABI|GCC)_'
optional='^(__gmon_start__|_ITM_deregisterTMCloneTable|_ITM_registerTMCloneTable)$'
# Memory, the end of the process, threads and exceptions are none of the library's business.
banned='^(malloc|calloc|realloc|free|exit|_exit|abort|pthread_create|thrd_create|_Z(n|d)[wa].*|_ZSt[0-9]+__throw_.*|__cxa_throw)@'

for symbol in $(nm -D --undefined-only --with-symbol-versions "$library" | awk '{print $NF}'); do
    if [[ $symbol =~ $banned ]]; then
        complain "must not use: $symbol"
    elif ! [[ $symbol =~ $contract || $symbol =~ $system || $symbol =~ $optional ]]; then
        complain "neither of the contract nor of the system: $symbol"
    fi
done

# --- the file as a whole ---------------------------------------------------------------------------------------------------------

dynamic=$(readelf -dW "$library")
segments=$(readelf -lW "$library")

grep -q 'SONAME.*\[libtessaly\.so\.7\]' <<<"$dynamic" || complain "SONAME is not libtessaly.so.7"
grep -q 'NEEDED.*\[libtessaly-runtime\.so\.7\]' <<<"$dynamic" || complain "libtessaly-runtime.so.7 is not NEEDED"
grep -Eq '\(BIND_NOW\)|\(FLAGS(_1)?\).*NOW' <<<"$dynamic" || complain "symbols are not bound at load time (BIND_NOW)"
grep -q 'TEXTREL' <<<"$dynamic" && complain "the code has text relocations (TEXTREL)"
grep -q 'GNU_RELRO' <<<"$segments" || complain "no GNU_RELRO segment"
grep -Eq 'GNU_STACK +.* RW +0x' <<<"$segments" || complain "the stack is executable or has no GNU_STACK entry"

exit $failed
