#!/usr/bin/env bash
# Installs what the build needs beyond the machine image (Debian packages only).
set -euo pipefail
pkgs=(cmake ninja-build g++ ccache nlohmann-json3-dev libcli11-dev libfmt-dev libgtest-dev libbenchmark-dev
  # The Python package, for the system's python3 (/usr/bin/python3)
  python3-dev python3-venv python3-setuptools pybind11-dev python3-pybind11 python3-numpy python3-pandas
  python3-matplotlib python3-pytest python3-dask python3-distributed)
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
