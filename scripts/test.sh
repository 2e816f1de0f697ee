#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: a normal build, an AddressSanitizer +
# UndefinedBehaviorSanitizer build, the concurrency tests (host, solver, node, the inpainting's
# threaded diffusion and searches) under ThreadSanitizer, and a minute of each fuzz target. The Python module
# is built and tested in the normal build only (a plain interpreter cannot load a module built
# with sanitizers), and once more as pip installs it.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_missing_packages
jobs="$(nproc)"

echo "== Release build, all tests (the Python module's too)"
configure_and_build build-test -DCMAKE_BUILD_TYPE=Release -DQUORBLEN_WERROR=ON
ctest --test-dir "$QUORBLEN_ROOT/build-test" -j "$jobs" --output-on-failure

echo "== pip install . into a fresh virtual environment; the Python tests against what it installed"
venv="$(mktemp -d)"
/usr/bin/python3 -m venv --system-site-packages "$venv"
# The Release build's module serves as it is: pip only packs it (setup.py).
QUORBLEN_CMAKE_BUILD_DIR="$QUORBLEN_ROOT/build-test" "$venv/bin/pip" install -q \
    --disable-pip-version-check --no-build-isolation "$QUORBLEN_ROOT"
(
    cd "$venv"
    export -n PYTHONPATH
    bin/python -c 'import quorblen, sys; assert quorblen.__file__.startswith(sys.prefix)'
    PYTHONDONTWRITEBYTECODE=1 QUORBLEN_PROGRAM="$QUORBLEN_ROOT/build-test/bin/quorblen" \
        QUORBLEN_DATA="$QUORBLEN_ROOT/data" bin/python -m pytest -q -p no:cacheprovider \
        "$QUORBLEN_ROOT/python/tests"
)
rm -rf "$venv"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build, all tests"
configure_and_build build-asan -DCMAKE_BUILD_TYPE=Debug -DQUORBLEN_WERROR=ON \
    -DQUORBLEN_SANITIZE=address,undefined -DQUORBLEN_BUILD_BENCHMARKS=OFF \
    -DQUORBLEN_BUILD_PYTHON=OFF
ctest --test-dir "$QUORBLEN_ROOT/build-asan" -j "$jobs" --output-on-failure

echo "== ThreadSanitizer build, the host's, the solver's and the node's tests, threaded inpainting"
configure_and_build build-tsan -DCMAKE_BUILD_TYPE=Debug -DQUORBLEN_WERROR=ON \
    -DQUORBLEN_SANITIZE=thread -DQUORBLEN_BUILD_BENCHMARKS=OFF -DQUORBLEN_BUILD_PYTHON=OFF \
    -- node_tests host_tests tv_tests inpaint_tests
ctest --test-dir "$QUORBLEN_ROOT/build-tsan" -j "$jobs" -L 'node|host|tv' --output-on-failure
# The inpainting's worker pool in every use: diffusion, candidate search, patch-match, and whole
# recipes over it (of the goldens three that take seconds here, not minutes).
ctest --test-dir "$QUORBLEN_ROOT/build-tsan" -j "$jobs" -L inpaint --output-on-failure \
    -R 'PlaneSweep|FastSearch|PatchMatch|Golden.*/(tv|texture_tv|patchmatch)$'

echo "== Fuzz targets (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer)"
fuzz_targets=(raw_read_fuzz command_line_fuzz node_inpaint_fuzz)
configure_and_build build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
    -DQUORBLEN_WERROR=ON -DQUORBLEN_BUILD_FUZZERS=ON -DQUORBLEN_BUILD_TESTS=OFF \
    -DQUORBLEN_BUILD_BENCHMARKS=OFF -DQUORBLEN_BUILD_PYTHON=OFF -- "${fuzz_targets[@]}"
fuzz_runs="$QUORBLEN_ROOT/build-fuzz/runs"
for target in "${fuzz_targets[@]}"; do
    # Each run starts from a fresh copy of the seeds: what it adds stays out of the repository.
    rm -rf "${fuzz_runs:?}/$target"
    mkdir -p "$fuzz_runs/$target"
    cp "$QUORBLEN_ROOT/fuzz/corpus/$target/"* "$fuzz_runs/$target/"
    if ! LSAN_OPTIONS="suppressions=$QUORBLEN_ROOT/tests/sanitizers/lsan.supp:print_suppressions=0" \
        "$QUORBLEN_ROOT/build-fuzz/fuzz/$target" -max_total_time=60 -timeout=30 \
        -artifact_prefix="$fuzz_runs/$target-" "$fuzz_runs/$target" >"$fuzz_runs/$target.log" 2>&1; then
        tail -n 60 "$fuzz_runs/$target.log"
        echo "$target failed; the input that failed is $fuzz_runs/$target-*"
        exit 1
    fi
    echo "$target: $(tail -n 1 "$fuzz_runs/$target.log")"
done
