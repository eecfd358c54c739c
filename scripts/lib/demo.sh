#!/usr/bin/env bash
# What scripts/run shows: real programs, scripts, a pipe and files in watched places; see --help.
set -uo pipefail

usage() {
    cat <<'TEXT'
Usage: scripts/lib/demo.sh prepare FOLDER
       scripts/lib/demo.sh act FOLDER STATE-DIR
       scripts/lib/demo.sh clean FOLDER

prepare makes the programs and scripts that act starts in FOLDER, and FOLDER/block.list, which names one of
them. act waits until the host on STATE-DIR has opened its queue, then starts programs and touches files in
/etc/cron.d and /run/systemd/system, under names that cron and systemd never run. clean takes away
whatever is left. act needs the rights of root.
TEXT
}

cron_file() { echo "/etc/cron.d/tevmon-demo.$(basename "$1")"; }           # cron reads no name with a dot
unit_file() { echo "/run/systemd/system/tevmon-demo-$(basename "$1").service"; }  # nothing asks for it

prepare() {
    local folder=$1
    mkdir -p "$folder"
    cp /bin/true "$folder/unknown-tool"
    echo "a build of our own, that no package knows" >>"$folder/unknown-tool"
    cp /bin/true "$folder/blocked-tool"
    echo "a program that the block list names" >>"$folder/blocked-tool"
    printf '#!/bin/sh\ntrue\n' >"$folder/script.sh"
    printf '#!/usr/bin/env bash\nid -u >/dev/null\n' >"$folder/script.bash"
    chmod +x "$folder"/*
    sha1sum "$folder/blocked-tool" >"$folder/block.list"
}

programs() {
    local folder=$1
    ls / >/dev/null
    uname -a >/dev/null
    date >/dev/null
    sort </dev/null
    env LC_ALL=C grep -c processor /proc/cpuinfo >/dev/null
    find "$folder" -name none
    "$folder/unknown-tool"
    "$folder/blocked-tool"
    "$folder/script.sh"
    bash "$folder/script.bash"
    (cd "$folder" && ./script.bash)
}

files() {
    local folder=$1 cron unit
    cron=$(cron_file "$folder")
    unit=$(unit_file "$folder")
    mkfifo "$folder/pipe"
    echo "# made by scripts/run, and removed again" >"$cron"
    touch "$cron"
    mv "$cron" "$cron.renamed"
    rm "$cron.renamed"
    mkdir -p "${unit%/*}"
    printf '[Service]\nType=oneshot\nExecStart=/bin/true\n' >"$unit"
    cp "$unit" "$folder/unit.copy"
}

act() {
    local folder=$1 state=$2
    for _ in $(seq 200); do
        [ -s "$state/data/db/tevcloudcacho.db" ] && break
        sleep 0.1
    done
    # Three rounds, so that the cache has something to do: the module looks at its queue every 5 s.
    local round
    for round in 1 2 3; do
        programs "$folder"
        [ "$round" -ne 2 ] || files "$folder"
        sleep 7
    done
    clean "$folder"
}

clean() {
    local folder=$1 cron
    cron=$(cron_file "$folder")
    rm -f "$cron" "$cron.renamed" "$(unit_file "$folder")"
    rm -rf "$folder"
}

case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    prepare | clean) [ $# -eq 2 ] || { usage >&2; exit 2; } ;;
    act) [ $# -eq 3 ] || { usage >&2; exit 2; } ;;
    *) usage >&2; exit 2 ;;
esac
"$@"
