# compare.sh PROGRAM DOCS [write]: does docs/ hold what the engine's table gives? With "write", makes it so.
set -eu
program=$1 docs=$2 mode=${3:-compare}
made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT

"$program" svg > "$made/conversation-states.svg"
"$program" markdown > "$made/table"
# The page keeps all but the lines between the two marks.
sed -e '/<!-- table -->/,/<!-- end of table -->/{//!d}' -e "/<!-- table -->/r $made/table" "$docs/conversation.md" \
    > "$made/conversation.md"

for file in conversation-states.svg conversation.md; do
    if [ "$mode" = write ]; then
        cp "$made/$file" "$docs/$file"
    elif ! diff -u "$docs/$file" "$made/$file"; then
        echo "docs/$file is not what the engine's table gives; make it again with" >&2
        echo "    bash tools/docs/compare.sh $program docs write" >&2
        exit 1
    fi
done
