#!/usr/bin/env bash
# What scripts/run shows: real programs, scripts, a pipe and files in watched places; see --help.
set -uo pipefail

usage() {
    cat <<'TEXT'
Usage: scripts/lib/demo.sh prepare FOLDER
       scripts/lib/demo.sh act FOLDER STATE-DIR
       scripts/lib/demo.sh clean FOLDER

prepare makes the programs and scripts that act starts in FOLDER, and FOLDER/bad.list, which names one of
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
    cp /bin/true "$folder/bad-tool"
    echo "a program that the bad list names" >>"$folder/bad-tool"
    printf '#!/bin/sh\ntrue\n' >"$folder/script.sh"
    printf '#!/usr/bin/env bash\nid -u >/dev/null\n' >"$folder/script.bash"
    chmod +x "$folder"/*
    sha1sum "$folder/bad-tool" >"$folder/bad.list"
    # A program that nobody knows and that runs already when the watch begins: the module has no verdict
    # on it when it touches files.
    cp "$(command -v perl)" "$folder/file-tool"
    echo "a build of our own, that no package knows" >>"$folder/file-tool"
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
    "$folder/bad-tool"
    "$folder/script.sh"
    bash "$folder/script.bash"
    (cd "$folder" && ./script.bash)
}

# Waits for $folder/go-N and does step N.
FILE_STEPS='
    my ($folder, $cron, $unit) = @ARGV;
    sub await { select undef, undef, undef, 0.05 until -e "$folder/go-$_[0]" or !-d $folder }
    sub put { open my $file, ">", $_[0] or die; print $file $_[1]; close $file }
    await 1;
    system {"/usr/bin/mkfifo"} "mkfifo", "$folder/pipe";
    put $cron, "# made by scripts/run, and removed again\n";
    put $unit, "[Service]\nType=oneshot\nExecStart=/bin/true\n";
    await 2;
    rename $cron, "$cron.renamed";
    await 3;
    unlink "$cron.renamed", $unit;
'

act() {
    local folder=$1 state=$2 round unit
    unit=$(unit_file "$folder")
    # Where there is no systemd its folder would tell programs that there is.
    [ -d "${unit%/*}" ] || { mkdir -p "${unit%/*}" && touch "$folder/made-unit-folder"; }
    "$folder/file-tool" -e "$FILE_STEPS" "$folder" "$(cron_file "$folder")" "$unit" &
    for _ in $(seq 200); do
        [ -s "$state/data/db/tevcloudcacho.db" ] && break
        sleep 0.1
    done
    # Three rounds, so that the cache has something to do: the module looks at its queue every 5 s.
    for round in 1 2 3; do
        programs "$folder"
        : >"$folder/go-$round"
        sleep 7
    done
    clean "$folder"
}

clean() {
    local folder=$1 cron
    cron=$(cron_file "$folder")
    rm -f "$cron" "$cron.renamed" "$(unit_file "$folder")"
    [ ! -e "$folder/made-unit-folder" ] || rmdir -p --ignore-fail-on-non-empty /run/systemd/system
    rm -rf "$folder"
}

case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    prepare | clean) [ $# -eq 2 ] || { usage >&2; exit 2; } ;;
    act) [ $# -eq 3 ] || { usage >&2; exit 2; } ;;
    *) usage >&2; exit 2 ;;
esac
"$@"
