# shellcheck shell=bash
# Set-up that ./test, ./demo and tests/coverage/run share: the needed Debian packages, then a build tree. Sourced from the root
# of the tree.

# shellcheck disable=SC2034 # for those who source this
build=${VOICE_BUILD_DIR:-build}
jobs=${JOBS:-$(nproc)}

say() { printf '%s\n' "$*"; }

# Whether standard output can rewrite a row.
is_terminal() { [ -t 1 ] && [ "${TERM:-dumb}" != dumb ]; }

# pause SECONDS: without a process of its own, which would outlive the one that pauses.
pause() { read -rt "$1" <> <(:) || true; }

# progress_show LOG: how far a command is, again and again: in one row of a terminal, elsewhere every 10 s. Its log tells:
# the last row that counts, as in 3/14, else the last one.
progress_show() {
    local log=$1 tail row seconds=10 columns=110 begin='  ' end='\n'
    if is_terminal; then
        seconds=1 columns=$(tput cols 2>/dev/null) || columns=80
        columns=$((columns - 3)) begin='\r\e[K  ' end=''
    fi
    # What started this may be killed without a word.
    while pause "$seconds" && kill -0 $$ 2>/dev/null; do
        tail=$(tail -c 2000 "$log" 2>/dev/null | tr -d '\0')
        row=$(grep -E '[0-9]+/[0-9]+' <<<"$tail" | tail -n 1) || row=${tail##*$'\n'}
        row=${row//[^[:print:]]/} row=${row%% ...*} row=${row#"${row%%[! ]*}"}
        # shellcheck disable=SC2059 # no text from outside is in the format
        printf "$begin%s$end" "${row:0:$columns}"
    done
}

printer=''
progress_end() {
    [ -n "$printer" ] || return 0
    kill "$printer" 2>/dev/null || true
    wait "$printer" 2>/dev/null || true
    printer=''
    ! is_terminal || printf '\r\e[K'
}
trap progress_end EXIT

# run_logged LOG COMMAND ...: runs the command with its output in a log, and shows how far it is.
run_logged() {
    local log=$1 status=0
    shift
    : >"$log"
    progress_show "$log" 8>&- &
    printer=$!
    # What the command leaves running must not keep the lock of the build tree.
    "$@" >"$log" 2>&1 </dev/null 8>&- || status=$?
    progress_end
    return $status
}

# packages GROUP ...: the packages of packages.txt that belong to these groups.
packages() {
    local group
    for group; do
        sed -n "/^\[$group\]\$/,/^\[/{/^\[/d;s/#.*//;/./p}" packages.txt
    done | sort -u
}

# missing_packages PACKAGE ...: those that are not installed.
missing_packages() {
    comm -23 <(printf '%s\n' "$@" | sort) \
        <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sed -n 's/^installed //p' | sort)
}

apt() {
    DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 "$@"
}

# install_packages GROUP ...: installs what is missing of these groups.
install_packages() {
    local needed missing log status=0
    mapfile -t needed < <(packages "$@")
    if ! command -v dpkg-query >/dev/null; then
        say "This is not a Debian system: the equivalents of these packages are expected: ${needed[*]}"
        return
    fi
    mapfile -t missing < <(missing_packages "${needed[@]}")
    [ "${#missing[@]}" -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        say "Packages are missing. As root, run: apt-get install --no-install-recommends ${missing[*]}" >&2
        return 1
    fi
    say "Installing ${missing[*]}"
    log=$(mktemp)
    # Package lists that are missing or out of date are the usual reason for a failure.
    run_logged "$log" apt install -y --no-install-recommends "${missing[@]}" ||
        { run_logged "$log" apt update && run_logged "$log" apt install -y --no-install-recommends "${missing[@]}"; } ||
        status=$?
    if [ "$status" -ne 0 ]; then
        tail -n 20 "$log" >&2
        say "Installing the packages failed (apt-get, above)." >&2
    fi
    rm -f "$log"
    return $status
}

# tree_lock FOLDER: nobody else works in this build tree until this process ends, or until tree_unlock.
tree_lock() {
    mkdir -p "$1"
    command -v flock >/dev/null || return 0
    exec 8>"$1/.lock"
    flock -n 8 && return 0
    say "Waiting for another ./test or ./demo that works in $1"
    flock 8
}

tree_unlock() { exec 8>&-; }

# is_configured FOLDER OPTION ...: whether the tree has these cache entries, -DNAME=VALUE each.
is_configured() {
    local folder=$1 option name
    shift
    [ -e "$folder/build.ninja" ] || return 1
    for option; do
        option=${option#-D}
        name=${option%%=*}
        [ "$(sed -n "s/^$name:[A-Z]*=//p" "$folder/CMakeCache.txt")" = "${option#*=}" ] || return 1
    done
}

# configure FOLDER [-DNAME=VALUE ...]: makes a build tree, once; from then on the build itself notices changes.
configure() { configure_from . "$@"; }

# configure_from SOURCES FOLDER [-DNAME=VALUE ...]: the same for another project. A tree that somebody made by hand with another
# generator is made anew, which cmake does only when told.
configure_from() {
    local sources=$1 folder=$2 fresh=()
    shift 2
    ! is_configured "$folder" "$@" || return 0
    mkdir -p "$folder"
    say "Configuring $folder"
    if [ -e "$folder/CMakeCache.txt" ] && ! grep -qx 'CMAKE_GENERATOR:INTERNAL=Ninja' "$folder/CMakeCache.txt"; then
        fresh=(--fresh)
    fi
    if ! cmake "${fresh[@]}" -S "$sources" -B "$folder" -G Ninja "$@" >"$folder/configure.log" 2>&1; then
        cat "$folder/configure.log" >&2
        say "Configuring failed (cmake, above)." >&2
        return 1
    fi
}

# configure_tests FOLDER [-DNAME=VALUE ...]: a tree with tests, and with all that they are about, whatever its maker left out.
configure_tests() {
    configure "$@" -DVOICE_TESTS=ON -DVOICE_HOSTS=ON -DVOICE_TOOL=ON -DVOICE_CONFORMANCE=ON -DVOICE_WERROR=ON
}

# build FOLDER [TARGET ...]: compiles what changed. The output goes to a log; a failure is shown.
build() {
    local folder=$1 target targets=()
    shift
    for target; do
        targets+=(--target "$target")
    done
    say "Building $folder"
    run_logged "$folder/build.log" cmake --build "$folder" -j "$jobs" "${targets[@]}" && return 0
    sed -n '/^FAILED: \|^CMake Error\|^ninja: error/,$p' "$folder/build.log" | head -n 100 >&2
    say "Building failed; the whole log is in $folder/build.log." >&2
    return 1
}

# programs_build: the hosts and the tool, in the build tree. One that has tests has these two as well, and keeps the tests.
programs_build() {
    local parts=(-DVOICE_HOSTS=ON -DVOICE_TOOL=ON)
    tree_lock "$build"
    is_configured "$build" "${parts[@]}" || configure "$build" -DVOICE_TESTS=OFF "${parts[@]}" || return 1
    build "$build" voice_application fxs_plugin dect_plugin fxo_plugin dsp_plugin voicectl || return 1
    tree_unlock
}
