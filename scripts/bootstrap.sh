#!/usr/bin/env bash
# Installs what the build, the tests and the demo need on a Debian 12 machine. Quick when all
# is there already: apt is asked only for what is missing.
set -euo pipefail

packages=(
  cmake ninja-build g++ ccache pkg-config
  qt6-base-dev qt6-base-dev-tools
  clang libclang-rt-14-dev
  libatspi2.0-dev libx11-dev libxrandr-dev
  # The X extensions of the platform services: the cursor (XFixes), raw input (XInput 2), the
  # display's power (DPMS, in Xext), idle time (MIT-SCREEN-SAVER) and injected input for the tests
  # (XTEST); the keyboard's layouts (xkbcommon with its X11 part).
  libxfixes-dev libxi-dev libxext-dev libxss-dev libxtst-dev libxkbcommon-dev libxkbcommon-x11-dev
  # The live desktop of the tests, the demo and the benchmark: a headless X server, a session
  # bus with the accessibility bus, a real application, and the plain walk to compare with.
  xvfb xauth dbus dbus-x11 at-spi2-core libatk-adaptor gtk-3-examples python3-pyatspi
  # A small window manager that follows the EWMH standard, for the window tests and the demo, and
  # xprop, by which the demo sees that it runs.
  openbox x11-utils
  # A stand-in for systemd-logind on a private system bus, for the tests of the user's session.
  python3-dbusmock libglib2.0-bin
  # Property lists (XML and binary); the translation catalogs of Qt, and the tools that make
  # gettext and Qt catalogs for the tests.
  libplist-dev qt6-translations-l10n gettext qt6-l10n-tools
  # A font whose measures are the same on every machine, for the tests of text layout.
  fonts-dejavu-core
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "bootstrap: all ${#packages[@]} packages present"
  exit 0
fi

echo "bootstrap: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "bootstrap: done"
