#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# plain.sh SERVER...: starts lines_plain and talks to it as nc would. The status is 0 if its answers
# are right and it ends when it is asked to.
set -euo pipefail
coproc "$@"
server=$COPROC_PID
trap 'kill "$server"' EXIT
read -r _ _ _ port <&"${COPROC[0]}"

exec 3<>"/dev/tcp/127.0.0.1/$port"
ask() {
    local answer
    printf '%s\n' "$1" >&3
    read -r answer <&3
    printf '%s\n    %s\n' "$1" "$answer"
    [ "$answer" = "$2" ]
}
ask 'a' '3826002220 "a"'
ask '' '2166136261 ""'
ask 'a "word"' '2339355884 "a \"word\""'
exec 3>&-

trap - EXIT
kill "$server"
wait "$server"
echo '3 lines, 0 wrong'
