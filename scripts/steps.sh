# Steps that say little when they go well and everything when they do not. To be read in with "." by the other scripts.
#
# The caller sets `root` to the checkout. Functions:
#   step TITLE COMMAND...   one line with the time it took; the whole output of the command when it fails, and the end
#   configure_and_build PRESET [TARGET...]   everything when no target is named
#   run_tests PRESET [CTEST-OPTION...]
#   jobs                    how many things to do at the same time
# shellcheck shell=sh

jobs() { nproc 2>/dev/null || echo 2; }

step() {
    step_title=$1
    shift
    step_start=$(date +%s)
    step_output=$(mktemp)
    if "$@" >"$step_output" 2>&1 </dev/null; then
        printf '%-52s %4ss\n' "$step_title" "$(($(date +%s) - step_start))"
        rm -f "$step_output"
    else
        step_status=$?
        cat "$step_output"
        rm -f "$step_output"
        printf '%-52s failed\n' "$step_title" >&2
        exit "$step_status"
    fi
}

# shellcheck disable=SC2154  # root is the caller's
configure() { (cd "$root" && cmake --preset "$1"); }
build() {
    build_preset=$1
    shift
    (cd "$root" && cmake --build --preset "$build_preset" --parallel "$(jobs)" ${1:+--target "$@"})
}

configure_and_build() {
    step "Configured ($1)" configure "$1"
    step "Built ($1)" build "$@"
}

# One more at a time than there are processors: tests wait a third of their time.
test_all() {
    test_preset=$1
    shift
    (cd "$root" && ctest --preset "$test_preset" --parallel "$(($(jobs) + 1))" "$@")
}

# Says how many tests there were, and names those that were skipped: a test that does not run proves nothing.
run_tests() {
    tests_start=$(date +%s)
    tests_output=$(mktemp)
    if test_all "$@" >"$tests_output" 2>&1 </dev/null; then
        printf '%-52s %4ss\n' "Tested ($1): $(grep -o '[0-9]* tests failed out of [0-9]*' "$tests_output")" \
            "$(($(date +%s) - tests_start))"
        sed -n 's/^[[:space:]]*[0-9]* - \(.*\) (Skipped)$/  skipped: \1/p' "$tests_output" | sort -u
        rm -f "$tests_output"
    else
        tests_status=$?
        # All but the lines about tests that went well.
        grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec' "$tests_output"
        rm -f "$tests_output"
        printf '%-52s failed\n' "Tested ($1)" >&2
        exit "$tests_status"
    fi
}
