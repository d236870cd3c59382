#!/usr/bin/env bash
# Installs, from Debian's packages, whatever is missing to build, run and test Pixmora.
set -euo pipefail

build_packages=(cmake ninja-build g++ pkg-config qt6-base-dev qt6-svg-dev libqt6svg6 zlib1g-dev libdeflate-dev libspng-dev
    libxcb1-dev libxcb-shm0-dev libxcb-randr0-dev libxcb-keysyms1-dev libxcb-composite0-dev
    libxcb-xfixes0-dev libxcb-ewmh-dev libxcb-icccm4-dev libxcb-xtest0-dev libxcb-xkb-dev libglib2.0-dev
    libgtest-dev libgmock-dev libbenchmark-dev)
# A real X desktop for the end-to-end tests, and for running without a screen.
desktop_packages=(xvfb openbox trayer xdotool x11-xserver-utils x11-utils xclip imagemagick xterm
    fonts-dejavu-core dbus-x11 scrot)
# Making the Debian package and checking it.
package_packages=(dpkg-dev appstream lintian)

wanted=("${build_packages[@]}")
if [[ "${1:-}" != "--build-only" ]]; then
    wanted+=("${desktop_packages[@]}" "${package_packages[@]}")
fi

missing=()
for package in "${wanted[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done

if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    sudo_cmd=()
    if [[ $(id -u) -ne 0 ]]; then
        sudo_cmd=(sudo)
    fi
    "${sudo_cmd[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
