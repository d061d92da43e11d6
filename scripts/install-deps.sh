#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests and the peer checks need.
# Checks with dpkg first so that a second run costs nothing; refreshes the package
# lists only when something is missing.
set -euo pipefail

packages=(
  build-essential cmake ccache pkg-config
  qtbase5-dev libqwt-qt5-dev
  libqt5svg5-dev
  libhdf5-dev libgdal-dev libarmadillo-dev
  libopencv-core-dev libopencv-imgproc-dev libopencv-ml-dev
  libboost-filesystem-dev libboost-regex-dev libboost-date-time-dev
  libzip-dev zipcmp zipmerge ziptool zlib1g-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  xvfb xauth
  pybind11-dev python3-dev python3-numpy python3-pytest
  python3-spectral python3-scipy python3-sklearn python3-h5py python3-gdal gdal-bin
  clang-14 libfuzzer-14-dev libomp-14-dev
  python3-distributed
  help2man desktop-file-utils shared-mime-info bash-completion
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing missing packages: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
