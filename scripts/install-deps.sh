#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building and testing Lumora needs, and only those
# that are missing, so running it again is cheap. The CUDA toolkit is not a package here: nvcc is
# looked for by the build (PATH, then /usr/local/cuda/bin), and without it the CUDA modules are skipped.
set -euo pipefail

packages=(
  cmake make g++ pkg-config
  libboost-dev libboost-thread-dev
  libgtest-dev libgmock-dev googletest
  libbenchmark-dev
  ocl-icd-opencl-dev opencl-headers pocl-opencl-icd clinfo
  clang-format
  libpng-dev
)
# `make fuzz` builds its libFuzzer target with clang and its fuzzer runtime.
if [[ "${1:-}" == "fuzz" ]]; then
  packages+=(clang libclang-rt-dev)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo=""
if [[ $(id -u) -ne 0 ]]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
