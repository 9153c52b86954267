#!/usr/bin/env bash
# Installs the Debian packages that building, testing and running Varnel need, when any is missing.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config clang-format groff-base
    libicu-dev libyajl-dev libuv1-dev libcurl4-openssl-dev libsecret-1-dev
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    # the desktop application; its tests draw on the offscreen platform plugin (in qt6-base)
    qt6-base-dev qt6-svg-dev libgl-dev fonts-dejavu-core
    git mercurial git-flow git-lfs subversion git-svn gnupg patch file
    # the tests reach repositories through a private sshd and keep passwords in a private
    # Secret Service (gnome-keyring on its own session bus), read back with secret-tool
    openssh-client openssh-server dbus-daemon dbus-bin gnome-keyring libsecret-tools
    # the tests serve repositories over HTTP with a small Python server
    python3
    # localedef's data: the tests build a German locale when the system has none
    locales
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    sudo=""
    if [[ $(id -u) -ne 0 ]]; then sudo="sudo"; fi
    $sudo apt-get update
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi
