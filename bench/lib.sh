# shellcheck shell=bash
# Sourced by the scripts of this folder: where the programs are, and how runs of two lengths are turned into counts per verb.

. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

build=${TESSALY_BENCH_BUILD:-$root/build/bench}
programs=$build/bench

# Nothing that the stand-in runtime reads from the environment may change what is measured.
unset TESSALY_NODE TESSALY_LOG TESSALY_API_TRACE TESSALY_ASSERT APPC_ATTACH_ID

# Both lengths are warm, so that their difference is the verbs alone.
short=1000
long=2000

need_programs()
{
    [ -x "$programs/verb_loop_node" ] || die "nothing is built in $build; bench/run builds it"
}

has()
{
    command -v "$1" >/dev/null
}

# run_under_callgrind OUT RUNTIME VERB TPS IN_FLIGHT TIMES
run_under_callgrind()
{
    valgrind --tool=callgrind --callgrind-out-file="$1" --instr-atstart=no --dump-line=no \
        --compress-strings=no --compress-pos=no \
        "$programs/verb_loop_$2" "$3" "$6" "$4" "$5" "$long" >"$1.log" 2>&1 || { cat "$1.log" >&2; return 1; }
}

# instructions_per_verb RUNTIME VERB TPS IN_FLIGHT - prints per verb: the library's instructions, the runtime's, both
# together, and calls of malloc. verb_loop switches the counting on, for which it must have been built with valgrind's
# header.
instructions_per_verb()
{
    local scratch times
    scratch=$(mktemp -d)
    for times in "$short" "$long"; do
        run_under_callgrind "$scratch/$times" "$@" "$times"
        awk -f "$root/bench/callgrind.awk" "$scratch/$times"
    done | paste - - | awk -v verbs=$((long - short)) '
        $1 == 0 { exit 1 }
        { printf "%.0f %.0f %.0f %.3g\n", ($4 - $1) / verbs, ($5 - $2) / verbs, ($4 + $5 - $1 - $2) / verbs, ($6 - $3) / verbs }
    ' || die "nothing was counted; build again, with valgrind installed"
    rm -rf "$scratch"
}

# system_calls_per_verb RUNTIME VERB
system_calls_per_verb()
{
    local scratch times
    scratch=$(mktemp)
    for times in "$short" "$long"; do
        strace -f -c -o "$scratch" "$programs/verb_loop_$1" "$2" "$times" 1 0 "$long"
        # strace prints a table for each word size, and the program is loaded by a 64-bit process.
        awk '$NF == "total" { calls += $4 } END { print calls + 0 }' "$scratch"
    done | paste - - | awk -v verbs=$((long - short)) '{ printf "%.3g\n", ($2 - $1) / verbs }'
    rm -f "$scratch"
}

# What follows reads the figures of rival NAME from $scratch/NAME, a line for each round.

median()
{
    sort -n "$scratch/$1" | awk '{ all[NR] = $1 } END { print all[int((NR + 1) / 2)] }'
}

# least NAME NAME - the lower of two medians
least()
{
    printf '%s\n' "$(median "$1")" "$(median "$2")" | sort -n | head -1
}

# row NAME TEXT [UNIT]
row()
{
    printf '%-62s %8s %s   (%s to %s)\n' "$2" "$(median "$1")" "${3:-ns}" "$(sort -n "$scratch/$1" | head -1)" \
        "$(sort -n "$scratch/$1" | tail -1)"
}

quotient()
{
    awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'
}

# ratio TEXT NUMERATOR DENOMINATOR GOAL - the goal in words
ratio()
{
    printf '%-62s %8s      goal: %s\n' "$1" "$(quotient "$2" "$3")" "$4"
}
