#!/usr/bin/env bash
# Installs what the build needs beyond the machine image (Debian packages only).
set -euo pipefail
pkgs=(cmake ninja-build g++ ccache nlohmann-json3-dev libcli11-dev libfmt-dev libgtest-dev libbenchmark-dev)
missing=()
for p in "${pkgs[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
