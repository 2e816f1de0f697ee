#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: a normal build, an AddressSanitizer +
# UndefinedBehaviorSanitizer build, and the concurrency tests (host, solver, node) under
# ThreadSanitizer. The Python module is built and tested in the normal build only: a plain
# interpreter cannot load a module built with sanitizers, so the sanitizer builds leave it out.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_missing_packages
jobs="$(nproc)"

echo "== Release build, all tests (the Python module's too)"
configure_and_build build-test -DCMAKE_BUILD_TYPE=Release -DQUORBLEN_WERROR=ON
ctest --test-dir "$QUORBLEN_ROOT/build-test" -j "$jobs" --output-on-failure

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build, all tests"
configure_and_build build-asan -DCMAKE_BUILD_TYPE=Debug -DQUORBLEN_WERROR=ON \
    -DQUORBLEN_SANITIZE=address,undefined -DQUORBLEN_BUILD_BENCHMARKS=OFF \
    -DQUORBLEN_BUILD_PYTHON=OFF
ctest --test-dir "$QUORBLEN_ROOT/build-asan" -j "$jobs" --output-on-failure

echo "== ThreadSanitizer build, the host's, the solver's and the node's tests"
configure_and_build build-tsan -DCMAKE_BUILD_TYPE=Debug -DQUORBLEN_WERROR=ON \
    -DQUORBLEN_SANITIZE=thread -DQUORBLEN_BUILD_BENCHMARKS=OFF -DQUORBLEN_BUILD_PYTHON=OFF \
    -- node_tests host_tests tv_tests
ctest --test-dir "$QUORBLEN_ROOT/build-tsan" -j "$jobs" -L 'node|host|tv' --output-on-failure
