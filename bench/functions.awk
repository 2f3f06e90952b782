# Reads callgrind's files of a short and a long run, in this order, and prints the own instructions of each function per
# verb, with the object that it lies in. Needs -v verbs=, the difference in length.

FNR == 1 { ++file }
/^ob=/ { object = substr($0, 4); sub(/.*\//, "", object); next }
/^fn=/ { name = substr($0, 4); next }
/^calls=/ { after_calls = 1; next }
/^[0-9]/ {
    if (!after_calls)
        own[object "  " name] += file == 1 ? -$2 : $2
    after_calls = 0
}

END {
    for (each in own)
        if (own[each] >= verbs)
            printf "%9.0f  %s\n", own[each] / verbs, each
}
