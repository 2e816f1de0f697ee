#!/usr/bin/env bash
# Installs what is missing, builds the program and the Python module, and upscales the bundled
# sample photo (or runs `quorblen ARGS...` when arguments are given).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_missing_packages
configure_and_build build -DCMAKE_BUILD_TYPE=Release -DQUORBLEN_BUILD_TESTS=OFF \
    -DQUORBLEN_BUILD_BENCHMARKS=OFF -- quorblen quorblen_module quorblen_python
"$QUORBLEN_ROOT/build/bin/quorblen" "$@"
