#!/usr/bin/env bash
# Installs the Debian packages that are missing for the sets named, and nothing when all are there:
# then neither the network nor root is touched.
set -euo pipefail

usage() {
    cat <<'TEXT'
Usage: scripts/lib/bootstrap.sh [--list] SET...

Installs by apt the Debian 12 packages of the sets that are not installed yet.

Sets:
  run     compiler, build tools and the libraries the products use
  test    what the tests use, the clang tools for the style tests included
  clang   the clang compiler and its sanitizer runtime (presets clang and fuzz)
  python  Python, for the scripts that check documents
  bench   Google Benchmark, and the tools that digests are compared with

Options:
  --list  print the package names of the sets and install nothing
  --help  this text

Exit code 0: everything is installed; 1: it is not; 2: wrong use.
TEXT
}

packages_of() {
    case "$1" in
        run) echo g++ cmake ninja-build pkg-config libsqlite3-dev libjsoncpp-dev libssl-dev \
                libcli11-dev prometheus-cpp-dev libcap-ng-dev clang libbpf-dev ;;
        test) echo libgtest-dev libgmock-dev sqlite3 python3 python3-jsonschema strace binutils clang-format clang-tidy ;;
        clang) echo clang libclang-rt-14-dev python3 ;;
        python) echo python3 ;;
        bench) echo libbenchmark-dev python3 rhash hashdeep openssl ;;
        *) return 1 ;;
    esac
}

# Prints those of its arguments that dpkg does not have installed.
missing_of() {
    local installed
    installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true)
    local package
    for package in "$@"; do
        grep -qxF "$package installed" <<<"$installed" || echo "$package"
    done
}

fail_with_command() {
    echo "bootstrap: $1" >&2
    echo "bootstrap: install them as root with this command, then start again:" >&2
    echo "    apt-get update && apt-get install -y --no-install-recommends ${missing[*]}" >&2
    exit 1
}

list=no
packages=()
for argument in "$@"; do
    case "$argument" in
        -h | --help) usage; exit 0 ;;
        --list) list=yes ;;
        *)
            names=$(packages_of "$argument") || { echo "bootstrap: no set '$argument'" >&2; exit 2; }
            read -ra names <<<"$names"
            packages+=("${names[@]}")
            ;;
    esac
done
[ ${#packages[@]} -gt 0 ] || { usage >&2; exit 2; }
if [ "$list" = yes ]; then
    printf '%s\n' "${packages[@]}"
    exit 0
fi

if ! command -v dpkg-query >/dev/null; then
    echo "bootstrap: no dpkg here; if the build stops, install the equivalents of: ${packages[*]}" >&2
    exit 0
fi
readarray -t missing < <(missing_of "${packages[@]}")
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail_with_command "packages are missing, and neither root nor sudo is here."
    as_root=(sudo)
    # Without a terminal nobody can answer sudo's question.
    [ -t 2 ] || as_root+=(-n)
    "${as_root[@]}" true || fail_with_command "packages are missing, and sudo refused."
fi

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
mkdir -p "$root/build"
log=$root/build/bootstrap.log
echo "bootstrap: installing ${missing[*]}" >&2
apt() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -o DPkg::Lock::Timeout=300 "$@" </dev/null >>"$log" 2>&1
}
: >"$log"
# A stale or partly failing package list is no reason to stop: what counts is the installation.
apt update || echo "bootstrap: apt-get update reported errors (see $log), going on" >&2
if ! apt install -y --no-install-recommends "${missing[@]}"; then
    tail -n 40 "$log" >&2
    fail_with_command "apt-get install failed; its output stands above and in $log."
fi
