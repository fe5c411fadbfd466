#!/usr/bin/env bash
# Installs every build dependency from Debian packages (only what is missing)
# and builds the project.
#   scripts/setup.sh              Release build in build/
#   scripts/setup.sh --sanitize   ASan+UBSan build in build-asan/
#   scripts/setup.sh --deps-only  install packages, build nothing
set -euo pipefail
cd "$(dirname "$0")/.."

mode=release
for arg in "$@"; do
  case "$arg" in
    --sanitize) mode=sanitize ;;
    --deps-only) mode=deps ;;
    -h|--help) sed -n '2,6p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "setup.sh: unknown argument '$arg' (see --help)" >&2; exit 2 ;;
  esac
done

packages=(build-essential cmake ninja-build ccache pkg-config git clang libclang-rt-14-dev
  qtbase5-dev nlohmann-json3-dev libzstd-dev libdeflate-dev libopenimageio-dev
  libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
  libtinygltf-dev nodejs)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # Refresh the package lists only when the install cannot find something.
  if ! $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"; then
    $sudo apt-get update -q
    $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
  fi
fi
# The glTF validator the tests run written files through (an npm package);
# Debian ships npm apart from nodejs.
if ! command -v npm >/dev/null; then
  $([ "$(id -u)" -eq 0 ] || echo sudo) apt-get install -y -q --no-install-recommends npm
fi
if ! [ -d "$(npm root -g 2>/dev/null)/gltf-validator" ]; then
  echo "setup: installing the npm package gltf-validator"
  $([ "$(id -u)" -eq 0 ] || echo sudo) npm install -g --no-audit --no-fund gltf-validator
fi
[ "$mode" = deps ] && exit 0

jobs=$(nproc 2>/dev/null || echo 2)
if [ "$mode" = sanitize ]; then
  dir=build-asan
  # -O1 with line tables only: sanitizer reports keep file:line, the build stays quick.
  flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1" -DQDX_SANITIZE=ON -DQDX_BUILD_BENCH=OFF)
else
  dir=build
  flags=(-DCMAKE_BUILD_TYPE=Release)
fi
cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"
