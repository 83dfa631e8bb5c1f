#!/usr/bin/env bash
# Installs every Debian package Quillmark needs to build, run and test.
# Idempotent and quiet: when everything is present it only asks dpkg.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ pkg-config clang-format
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-multimedia-dev libqt6svg6 qt6-qpa-plugins
  libgl-dev libvulkan-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev libx264-dev
  libavdevice-dev
  libpulse-dev libtesseract-dev tesseract-ocr-eng libsecret-1-dev
  tesseract-ocr  # the tesseract command, which bench/ocr measures the index against
  libxcb1-dev libxcb-shm0-dev libxcb-xfixes0-dev libxcb-keysyms1-dev libxcb-randr0-dev
  libxcb-composite0-dev libxcb-xinput-dev libxcb-xkb-dev libxcb-ewmh-dev libxcb-icccm4-dev
  libimagequant-dev libgif-dev libspng-dev libdeflate-dev libcanberra-dev libcanberra-pulse
  libgtest-dev libgmock-dev libbenchmark-dev
  # run and test
  xvfb x11-utils x11-xserver-utils openbox trayer xdotool xclip dbus-x11 dbus
  gnome-keyring libsecret-tools pulseaudio pulseaudio-utils ffmpeg imagemagick trash-cli
  desktop-file-utils sound-theme-freedesktop fonts-dejavu-core xterm xcompmgr dunst
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "Installing ${#missing[@]} packages: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
