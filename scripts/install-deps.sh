#!/usr/bin/env bash
# Installs the Debian packages the build needs. Idempotent: packages already
# present are skipped, so a second run costs one dpkg query.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config ccache
  libgtest-dev libgmock-dev libbenchmark-dev
  libopenimageio-dev openimageio-tools libopencolorio-dev
  nlohmann-json3-dev libembree-dev libtbb-dev
  libcli11-dev libfftw3-dev libnoise-dev
  libgl-dev libegl-dev libosmesa6-dev libegl-mesa0 libgl1-mesa-dri
  python3-dev pybind11-dev python3-numpy python3-pytest
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages: ${missing[*]}" >&2
  echo "install-deps: run as root (or install them) and try again" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
