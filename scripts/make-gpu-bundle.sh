#!/bin/bash
# make-gpu-bundle.sh: builds Release in build-release/ (with the PTX modules) and gathers into
# build/gpu-bundle/ everything that the pixel tests, the benchmarks and `lumora` need on a machine with an
# NVIDIA driver and nothing else of ours: the programs, liblumora*.so, PTX/, the card lists, every shared
# library they need beyond glibc and the driver (found with ldd, plus the OpenCL loader, which the library
# opens at run time), and run.sh. See docs/gpu-check.md.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-release
bundle=build/gpu-bundle
limit=$((60 * 1024 * 1024))

command -v nvcc >/dev/null || [ -x /usr/local/cuda/bin/nvcc ] ||
  { echo "make-gpu-bundle: nvcc not found: a bundle without PTX modules cannot run on a GPU" >&2; exit 1; }
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j "$(nproc)" --target lumora_cli lumora_device_tests lumora_bench lumora_kernels

rm -rf "$bundle"
mkdir -p "$bundle/bin" "$bundle/lib/compat"
cp "$build/bin/lumora" "$build/bin/lumora_device_tests" "$build/bin/lumora_bench" "$bundle/bin/"
cp -P "$build"/bin/liblumora*.so* "$bundle/bin/"
cp -r "$build/bin/PTX" "$bundle/bin/"
for list in cuda_supported_cards.txt opencl_supported_cards.txt; do
  if [ -f "$build/bin/$list" ]; then cp "$build/bin/$list" "$bundle/bin/"; fi
done
strip --strip-unneeded "$bundle"/bin/lumora "$bundle"/bin/lumora_device_tests "$bundle"/bin/lumora_bench \
  "$bundle"/bin/liblumora*.so.*.*

# The libraries the programs load, as ldd resolves them here. glibc and the CUDA driver come from the
# target; libstdc++ and libgcc_s go to lib/compat, which run.sh uses only where the target's are too old.
copy_library() {  # name path
  case "$1" in
    linux-vdso.so.* | ld-linux*.so.* | libc.so.* | libm.so.* | libpthread.so.* | libdl.so.* | librt.so.* | \
      libresolv.so.* | libutil.so.* | libcuda.so.* | liblumora*) return ;;
    libstdc++.so.* | libgcc_s.so.*) cp -L "$2" "$bundle/lib/compat/$1" ;;
    *) cp -L "$2" "$bundle/lib/$1" ;;
  esac
}
for program in "$bundle"/bin/lumora "$bundle"/bin/lumora_device_tests "$bundle"/bin/lumora_bench \
  "$bundle"/bin/liblumora*.so.*.*; do
  while read -r name arrow path _; do
    if [ "$arrow" = "=>" ] && [ "$path" = "not" ]; then
      echo "make-gpu-bundle: $program needs $name, which ldd does not find" >&2
      exit 1
    fi
    if [ "$arrow" = "=>" ] && [ -f "$path" ]; then copy_library "$name" "$path"; fi
  done < <(LD_LIBRARY_PATH="$bundle/bin" ldd "$program")
done
# The whole listing is read (no early exit, which would end ldconfig with SIGPIPE under pipefail); ldconfig
# lives in /sbin, which an ordinary user's PATH may lack.
ldconfig=$(command -v ldconfig || echo /sbin/ldconfig)
opencl=$("$ldconfig" -p | awk '$1 == "libOpenCL.so.1" && /x86-64/ && !found { found = $NF } END { print found }')
[ -n "$opencl" ] || { echo "make-gpu-bundle: the OpenCL loader libOpenCL.so.1 is not installed" >&2; exit 1; }
copy_library libOpenCL.so.1 "$opencl"

cp scripts/gpu-bundle-run.sh "$bundle/run.sh"
chmod +x "$bundle/run.sh"
cp docs/gpu-check.md "$bundle/README.md"

size=$(du -sb "$bundle" | cut -f1)
if [ "$size" -gt "$limit" ]; then
  echo "make-gpu-bundle: $bundle is $((size / 1024 / 1024)) MiB, over the 60 MiB limit" >&2
  exit 1
fi
echo "Bundle: $bundle ($((size / 1024)) KiB): $(cd "$bundle" && find . -type f | sort | tr '\n' ' ')"
