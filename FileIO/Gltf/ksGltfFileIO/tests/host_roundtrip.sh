#!/usr/bin/env bash
# A .glb imported through the host equals the import of its Qdx conversion,
# and a scene the host writes as .glb and .gltf passes the glTF validator.
#   host_roundtrip.sh BIN_DIR SCENE.qdx VALIDATE_SCRIPT
set -euo pipefail
bin=$1 scene=$2 validate=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$bin/qdx" convert "$scene" "$work/model.glb"
"$bin/qdx" convert "$work/model.glb" "$work/model.qdx"
# The first line names the file; texture paths name where the images live.
strip() { tail -n +2 "$1" | sed 's#texture \([a-z]*\): .*/#texture \1: #'; }
"$bin/kestrel" import "$work/model.glb" > "$work/glb.txt"
"$bin/kestrel" import "$work/model.qdx" > "$work/qdx.txt"
if ! diff <(strip "$work/glb.txt") <(strip "$work/qdx.txt"); then
  echo "FAIL: the .glb and its Qdx conversion import differently"
  exit 1
fi

"$bin/kestrel" convert "$scene" "$work/host.glb" > /dev/null
"$bin/kestrel" convert "$work/model.qdx" "$work/host.gltf" > /dev/null
"$bin/kestrel" import "$work/host.glb" > /dev/null
if command -v node > /dev/null; then
  rc=0
  node "$validate" "$work/host.glb" "$work/host.gltf" "$work/model.glb" || rc=$?
  if [ "$rc" -eq 3 ]; then
    echo "skipped the validator: the gltf-validator package is not installed"
  elif [ "$rc" -ne 0 ]; then
    echo "FAIL: the validator reports errors"
    exit 1
  fi
else
  echo "skipped the validator: node is not installed"
fi
echo "host glTF round trip passed"
