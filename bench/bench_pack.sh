#!/usr/bin/env bash
# Packing speed against a plain copy of the same folder.
#
#   bench/bench_pack.sh VENDRAK CORPUS [MB] [RUNS]
#
# Builds a folder of about MB megabytes (default 200) from copies of the corpus files (a few
# thousand files in nested folders), then times, interleaved so that a busy machine hurts both
# alike: `cp -r` of the folder, `vendrak pack` (SHA-1 included), and `vendrak pack --compress`.
# Prints the median of RUNS (default 5) for each, in seconds and MB/s.
set -euo pipefail
vendrak=${1:?vendrak executable}
corpus=${2:?corpus folder}
megabytes=${3:-200}
runs=${4:-5}

work=$(mktemp -d "${TMPDIR:-/tmp}/vendrak-bench-pack.XXXXXX")
trap 'rm -rf "$work"' EXIT
src="$work/addon"
mkdir -p "$src"
printf 'class CfgPatches { class bench { units[] = {}; }; };\n' > "$src/config.cpp"

mapfile -t files < <(find "$corpus" -type f ! -name '*.txt' ! -name '*.tsv' ! -name '*.h' ! -name '*.hpp' \
                     ! -name '*.cpp' ! -name '*.png' | sort)
limit=$((megabytes * 1024 * 1024))
total=0
copy=0
while [ "$total" -lt "$limit" ]; do
  dir="$src/set$((copy / 10))/copy$copy"
  mkdir -p "$dir"
  for f in "${files[@]}"; do
    # Models and terrains keep their bytes under another extension: the folder is about speed, not
    # about the judgement of editable or damaged content.
    name=$(basename "$f")
    case "$name" in *.p3d | *.wrp) name="$name.dat" ;; esac
    cp "$f" "$dir/$name"
    total=$((total + $(stat -c %s "$f")))
    [ "$total" -ge "$limit" ] && break
  done
  copy=$((copy + 1))
done
count=$(find "$src" -type f | wc -l)
mb=$(awk -v b="$total" 'BEGIN { printf "%.1f", b / 1048576 }')
echo "folder: $count files, $mb MB"

seconds() {
  local start end
  start=$(date +%s.%N)
  "$@" > /dev/null 2> "$work/last-error" || { echo "failed: $* ($(cat "$work/last-error"))" >&2; exit 1; }
  end=$(date +%s.%N)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", b - a }'
}

declare -a t_cp t_pack t_zip
for ((i = 0; i < runs; i++)); do
  rm -rf "$work/copy" "$work/out.pbo" "$work/outz.pbo"
  sync
  t_cp+=("$(seconds cp -r "$src" "$work/copy")")
  rm -rf "$work/copy"
  sync
  t_pack+=("$(seconds "$vendrak" pack --quiet --accept-mlod -f --exclude none "$src" "$work/out.pbo")")
  rm -f "$work/out.pbo"
  sync
  t_zip+=("$(seconds "$vendrak" pack --quiet --accept-mlod -f --exclude none --compress "$src" "$work/outz.pbo")")
done

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
report() {
  local m
  m=$(median "${@:2}")
  awk -v name="$1" -v s="$m" -v mb="$mb" 'BEGIN { printf "%-16s median %7.3f s  %8.1f MB/s\n", name, s, mb / s }'
}
report "cp -r" "${t_cp[@]}"
report "pack" "${t_pack[@]}"
report "pack --compress" "${t_zip[@]}"
awk -v a="$(median "${t_pack[@]}")" -v b="$(median "${t_cp[@]}")" 'BEGIN { printf "pack / cp -r: %.2fx\n", a / b }'
