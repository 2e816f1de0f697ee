# Shared by the set-up scripts: installs what is missing and builds the project.
set -euo pipefail

QUORBLEN_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
QUORBLEN_PACKAGES=(g++ cmake make pkg-config libopenimageio-dev libboost-dev libgtest-dev
                   libbenchmark-dev libdeflate-dev clang libclang-rt-dev pybind11-dev python3-dev python3-numpy
                   python3-pytest python3-openimageio python3-setuptools python3-wheel python3-pip
                   python3-venv
                   openimageio-tools fonts-dejavu-core)

# Installs the Debian packages the build needs, if any is missing.
install_missing_packages() {
    local missing=()
    for package in "${QUORBLEN_PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$package")
    done
    if [ "${#missing[@]}" -eq 0 ]; then
        return
    fi
    echo "Installing: ${missing[*]}"
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo"
    fi
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null
}

# configure_and_build DIR [CMAKE OPTIONS...] [-- TARGETS...]: builds into $QUORBLEN_ROOT/DIR.
configure_and_build() {
    local dir="$QUORBLEN_ROOT/$1"
    shift
    local options=() targets=()
    while [ "$#" -gt 0 ] && [ "$1" != "--" ]; do options+=("$1"); shift; done
    [ "$#" -gt 0 ] && shift
    targets=("$@")
    cmake -S "$QUORBLEN_ROOT" -B "$dir" "${options[@]}" >/dev/null
    if [ "${#targets[@]}" -gt 0 ]; then
        cmake --build "$dir" -j "$(nproc)" --target "${targets[@]}"
    else
        cmake --build "$dir" -j "$(nproc)"
    fi
}
