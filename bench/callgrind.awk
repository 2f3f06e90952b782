# Reads what callgrind has written and prints three numbers:
#
#     library   instructions of libtessaly.so.7 itself, and of whatever it calls outside the project, which is libc
#     runtime   of libtessaly-runtime.so.7, likewise
#     mallocs   calls of malloc and its sisters, whoever makes them
#
# A file has a block for each function: its object (ob=), its own instructions, a line a place, and for each function that it
# calls a line "calls=" behind the callee's object (cob=, when that is another), followed by a line with what those calls
# took, all that they call in turn included. So a part is the own lines of its functions, plus the calls that leave the
# project: just what callgrind saw, nothing is divided by guess. Needs --compress-strings=no and --compress-pos=no.

function part_of(object)
{
    if (object ~ /\/libtessaly\.so/)
        return "library"
    if (object ~ /\/libtessaly-runtime\.so/)
        return "runtime"
    return object ~ /_(node|null)$/ ? "program" : "outside"
}

/^ob=/ { part = part_of(substr($0, 4)); next }
/^cob=/ { callee = part_of(substr($0, 5)); next }
/^cfn=/ { callee_name = substr($0, 5); next }
/^calls=/ {
    if (callee_name ~ /^(malloc|calloc|realloc|memalign|posix_memalign|aligned_alloc)$/)
        mallocs += substr($1, 7)
    after_calls = 1
    next
}
/^[0-9]/ {
    if (!after_calls || callee == "outside")
        sum[part] += $2
    after_calls = 0
    callee = ""
}

END { printf "%.0f %.0f %.0f\n", sum["library"], sum["runtime"], mallocs }
