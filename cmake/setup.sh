# shellcheck shell=bash
# Set-up that ./test and ./demo share: the needed Debian packages, then a build tree. Sourced from the root of the tree.

# shellcheck disable=SC2034 # for those who source this
build=${VOICE_BUILD_DIR:-build}
jobs=${JOBS:-$(nproc)}

say() { printf '%s\n' "$*"; }

# The packages of packages.txt that are not installed.
missing_packages() {
    local needed
    mapfile -t needed < <(sed 's/#.*//' packages.txt | xargs -n1)
    comm -23 <(printf '%s\n' "${needed[@]}" | sort) \
        <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${needed[@]}" 2>/dev/null | sed -n 's/^installed //p' | sort)
}

apt() {
    DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 "$@" </dev/null
}

install_packages() {
    if ! command -v dpkg-query >/dev/null; then
        say "This is not a Debian system: the equivalents of these packages are expected: $(sed 's/#.*//' packages.txt | xargs)"
        return
    fi
    local missing log
    mapfile -t missing < <(missing_packages)
    [ "${#missing[@]}" -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        say "Packages are missing. As root, run: apt-get install ${missing[*]}" >&2
        return 1
    fi
    say "Installing ${missing[*]}"
    log=$(mktemp)
    if ! apt install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1; then
        # Package lists that are missing or out of date are the usual reason.
        if ! { apt update && apt install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
            tail -n 20 "$log" >&2
            say "Installing the packages failed (apt-get, above)." >&2
            rm -f "$log"
            return 1
        fi
    fi
    rm -f "$log"
}

# configure FOLDER [CMAKE OPTION ...]: makes a build tree, once; from then on the build itself notices changes.
configure() {
    local folder=$1
    shift
    [ ! -e "$folder/build.ninja" ] || return 0
    mkdir -p "$folder"
    say "Configuring $folder"
    if ! cmake -S . -B "$folder" -G Ninja "$@" >"$folder/configure.log" 2>&1; then
        cat "$folder/configure.log" >&2
        say "Configuring failed (cmake, above)." >&2
        return 1
    fi
}

# build FOLDER [TARGET ...]: compiles what changed. Progress goes to a log; a failure is shown.
build() {
    local folder=$1 target targets=()
    shift
    for target; do
        targets+=(--target "$target")
    done
    say "Building $folder"
    if ! cmake --build "$folder" -j "$jobs" "${targets[@]}" >"$folder/build.log" 2>&1; then
        sed -n '/^FAILED: \|^CMake Error\|^ninja: error/,$p' "$folder/build.log" | head -n 100 >&2
        say "Building failed; the whole log is in $folder/build.log." >&2
        return 1
    fi
}
