# shellcheck shell=bash
# The results of a long run of several parts: counted from what ctest and pytest write down, shown as a table. Sourced after
# cmake/setup.sh.

passed=0 failed=0 rows=()

# row WHERE WHAT PASSED FAILED NOT_RUN TIME
row() { printf '%-11s%-28s%7s%8s%9s%8s\n' "$@"; }

# count WHERE WHAT RESULTS NOT_RUN SECONDS STATUS: the results of a part, a JUnit file of ctest, pytest or GoogleTest, and the
# status of what wrote it.
count() {
    local total=0 bad=0 skipped=0
    attribute() { tr '\n' ' ' <"$1" | grep -oE '<testsuites? [^>]*' | grep -oP "\b$2=\"\K[0-9]+" | head -n 1 || echo 0; }
    if [ -s "$3" ]; then
        total=$(attribute "$3" tests) bad=$(($(attribute "$3" failures) + $(attribute "$3" errors)))
        skipped=$(($(attribute "$3" skipped) + $(attribute "$3" disabled)))
    fi
    [ "$((total - skipped))" -gt 0 ] || bad=1 total=$((skipped + 1)) # nothing ran
    # A test whose program is missing is no skipped test.
    if [ "$6" -ne 0 ] && [ "$bad" -eq 0 ]; then
        bad=1
        if [ "$skipped" -gt 0 ]; then skipped=$((skipped - 1)); else total=$((total + 1)); fi
    fi
    passed=$((passed + total - bad - skipped))
    failed=$((failed + bad))
    rows+=("$(row "$1" "$2" "$((total - bad - skipped))" "$bad" "$(($4 + skipped))" "$5 s")")
}

# fail WHERE WHAT: for what is no test.
fail() {
    failed=$((failed + 1))
    rows+=("$(row "$1" "$2" 0 1 - -)")
}

# show_table [NOT_RUN]: all rows, the reasons why tests were not run, and the counts. Status 1 when something failed.
show_table() {
    row where what passed failed 'not run' time
    printf '%s\n' "${rows[@]}"
    if [ $# -gt 0 ]; then
        say 'Not run, and why:'
        grep -v '^#' "$1"
    fi
    say "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}

# not_run_patterns FILE WHERE: of each row, the pattern of the tests that are not run there. Rows of FILE: where (or all) |
# pattern | why. The expressions are ctest's and grep's: \b would be a letter to ctest.
not_run_patterns() { sed -n "/^[^#|]*\b\($2\|all\)\b[^|]*|/{s/^[^|]*| *\([^ ]*\) *|.*/\1/p}" "$1"; }

# not_run FILE WHERE: all of them as one.
not_run() {
    local pattern
    pattern=$(not_run_patterns "$1" "$2" | paste -sd '|')
    printf '%s\n' "${pattern:-^\$}"
}

# not_run_look FILE WHERE NAMES: a row that fits no test is a failure. Its tests are called otherwise now, and run.
not_run_look() {
    local pattern
    while read -r pattern; do
        grep -qE -e "$pattern" <<<"$3" || fail "$2" "no test $pattern"
    done < <(not_run_patterns "$1" "$2")
}

# test_names TREE: the names of all its tests.
test_names() { ctest --test-dir "$1" -N | sed -n 's/^ *Test *#[0-9]*: //p' | sort; }

# show_failures LOG: what the tests that failed had to say.
show_failures() {
    awk '!/^ *Start +[0-9]+: |^ *[0-9]+\/[0-9]+ Test +#[0-9]+: .* (Passed|Skipped) +[0-9.]+ sec$|^Test project |^$/ &&
        ++shown <= 300' "$1" >&2
}
