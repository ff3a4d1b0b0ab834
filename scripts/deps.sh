#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Sourced by the
# other scripts. As root, missing packages are installed with apt-get; as
# another user, the script names them and stops.
set -euo pipefail

# Build and tests; then test and benchmark references (Eigen, OpenCV), the
# tools (JSON, PNG, command line), fuzzing (clang and its runtimes) and memcheck.
EJ_PACKAGES=(cmake make g++ gcc binutils pkg-config libgtest-dev libbenchmark-dev doxygen abigail-tools
             libeigen3-dev libopencv-dev nlohmann-json3-dev libpng-dev libcli11-dev
             clang libclang-rt-14-dev valgrind)

ej_install_deps() {
    local missing=()
    for pkg in "${EJ_PACKAGES[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "Missing Debian packages: ${missing[*]}" >&2
        echo "Install them with: sudo apt-get install -y ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
