#!/bin/bash
# chart_in_browser.sh TOOL PROGRAM - the page of a traced program in a browser: it must have lanes, verbs and arrows there, run its
# script, and complain of nothing. Exits 77, skipped, where no chromium is installed.
set -euo pipefail
command -v chromium >/dev/null || exit 77
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
TESSALY_API_TRACE=$dir/verbs.trace "$2" >/dev/null
"$1" trace --html "$dir/chart.html" "$dir/verbs.trace"
# What the script does, the document shows: a click on "+" makes the picture wider.
sed 's|</body>|<script>document.getElementById("in").click()</script></body>|' "$dir/chart.html" >"$dir/clicked.html"
timeout -s KILL 60 chromium --headless --no-sandbox --disable-gpu --user-data-dir="$dir/profile" --enable-logging=stderr \
    --dump-dom "file://$dir/clicked.html" >"$dir/dom" 2>"$dir/log"

failed=0
expect()
{
    grep -Eq "$1" "$dir/dom" || { echo "not in the page: $1"; failed=1; }
}
expect 'class="tp".*GREETER|>GREETER<'
expect '>LISTENER<'
expect '<g class="v [a-z]+" data-c="[1-9]'
expect '<g class="a data" data-c="[1-9]'
expect '>attach</text>'
width=$(sed -n 's/.*class="body" width="\([0-9.]*\)".*viewBox="0 0 \([0-9]*\) .*/\1 \2/p' "$dir/dom")
awk '{exit !($1 > $2 * 1.2)}' <<<"$width" || { echo "the script has not run: $width"; failed=1; }
! grep CONSOLE "$dir/log" || failed=1
exit $failed
