#!/usr/bin/env bash
# The showcase that `make demo` runs: the device report, the generated images of `lumora demo` (blend modes,
# blur sweep, cross dissolve, colour bars through the packed and planar formats), a Y4M clip blurred through a
# pipe, and the bench table. Everything goes into the folder given (demo-out/ from make).
# Usage: demo.sh LUMORA_PROGRAM OUTPUT_FOLDER
set -euo pipefail

lumora=$1
out=$2
mkdir -p "$out"
out=$(cd "$out" && pwd)

echo "== The devices"
"$lumora" devices
echo
echo "== Generated images, on the first qualified device"
"$lumora" demo "$out"
echo
echo "== The clip blurred through a pipe (sigma 4), frame by frame"
start=$(date +%s.%N)
cat "$out/clip.y4m" | "$lumora" blur - --sigma 4 --edge extend -o - >"$out/clip-blurred.y4m"
end=$(date +%s.%N)
frames=$(grep -ac FRAME "$out/clip-blurred.y4m" || true)
awk -v o="$out" -v f="$frames" -v s="$start" -v e="$end" 'BEGIN { printf "  %s/clip-blurred.y4m: %d frames in %.2f s\n", o, f, e - s }'
echo
echo "== The bench, 1920 x 1080 32f"
"$lumora" bench --size 1920x1080 | tee "$out/bench.txt"
echo
echo "Everything is in $out"
