#!/usr/bin/env bash
# Builds the Qdx fuzz targets with clang in build-fuzz/ and runs each: the
# binary and text readers on bytes, and the whole import road (plug-in and
# host) on scenes built from the fuzzer's bytes.
#   scripts/fuzz.sh --smoke   a few seconds per target (CI)
#   scripts/fuzz.sh --long    ten minutes per target (set FUZZ_SECONDS to change)
set -euo pipefail
cd "$(dirname "$0")/.."
case "${1:---smoke}" in
  --smoke) seconds=${FUZZ_SECONDS:-8}; lengths= ;;
  --long) seconds=${FUZZ_SECONDS:-600}; lengths=-len_control=0 ;;
  -h|--help) sed -n '2,6p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
  *) echo "fuzz.sh: unknown argument '$1' (see --help)" >&2; exit 2 ;;
esac
dir=build-fuzz
cxx=$(command -v clang++ || command -v clang++-14)
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_COMPILER="$cxx" \
  "-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer" \
  -DQDX_BUILD_FUZZ=ON -DQDX_BUILD_TESTS=OFF -DQDX_BUILD_BENCH=OFF >/dev/null
ninja -C "$dir" fuzz_qdx_binary fuzz_qdx_text fuzz_qdx_seeds fuzz_cache_pc2 fuzz_cache_tove \
  fuzz_qdx_scene fuzz_gltf
corpus="$dir/corpus"
mkdir -p "$corpus/binary" "$corpus/text" "$corpus/pc2" "$corpus/tove" "$corpus/scene"
"$dir/bin/fuzz_qdx_seeds" "$corpus/binary" "$corpus/text" "$corpus/pc2" "$corpus/tove"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for flavour in binary text; do
  echo "fuzz: $flavour reader for $seconds s"
  "$dir/bin/fuzz_qdx_$flavour" -max_total_time="$seconds" -rss_limit_mb=2048 -max_len=65536 \
    -print_final_stats=1 "$corpus/$flavour" 2>&1 | tail -n 4
done
for cache in pc2 tove; do
  echo "fuzz: $cache cache reader for $seconds s"
  "$dir/bin/fuzz_cache_$cache" -max_total_time="$seconds" -rss_limit_mb=2048 -max_len=65536 \
    -print_final_stats=1 "$corpus/$cache" 2>&1 | tail -n 4
done
echo "fuzz: glTF reader for $seconds s"
mkdir -p "$corpus/gltf"
"$dir/bin/fuzz_gltf" -max_total_time="$seconds" -rss_limit_mb=2048 -max_len=65536 \
  -print_final_stats=1 "$corpus/gltf" 2>&1 | tail -n 4
echo "fuzz: whole import road on built scenes for $seconds s"
# A long run starts with full-length inputs at once: each one is slow (it
# builds and imports a scene), so growing the length step by step would
# spend most of the run on inputs of a few bytes.
"$dir/bin/fuzz_qdx_scene" -max_total_time="$seconds" -rss_limit_mb=4096 -max_len=4096 \
  -timeout=60 $lengths -print_final_stats=1 "$corpus/scene" 2>&1 | tail -n 4
