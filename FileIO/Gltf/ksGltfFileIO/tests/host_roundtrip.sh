#!/usr/bin/env bash
# A .glb imported through the host equals the import of its Qdx conversion;
# the conversion takes the .glb's embedded images along beside it; scenes the
# host writes as .glb and .gltf pass the glTF validator.
#   host_roundtrip.sh BIN_DIR SCENE.qdx VALIDATE_SCRIPT
set -euo pipefail
bin=$1 scene=$2 validate=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*"
  exit 1
}

# The scene's textures lie beside it, named relative to its folder.
(cd "$(dirname "$scene")" && "$bin/qdx" convert "$(basename "$scene")" "$work/model.glb")
mkdir "$work/qdx"
"$bin/qdx" convert "$work/model.glb" "$work/qdx/model.qdx"
ls "$work/qdx/model_images/"*.png > /dev/null 2>&1 ||
  fail "the conversion wrote no images beside model.qdx"
# The Qdx file stands alone: the images the .glb read left beside it go.
rm -rf "$work/model_images"

# The first line names the file; texture paths name where the images live.
strip() { tail -n +2 "$1" | sed 's#texture \([a-z]*\): .*/#texture \1: #'; }
"$bin/kestrel" import "$work/model.glb" > "$work/glb.txt"
"$bin/kestrel" import "$work/qdx/model.qdx" > "$work/qdx.txt"
diff <(strip "$work/glb.txt") <(strip "$work/qdx.txt") ||
  fail "the .glb and its Qdx conversion import differently"
stats=$("$bin/kestrel" import --stats "$work/qdx/model.qdx" | grep '^textures:')
[[ $stats =~ ^textures:\ +([1-9][0-9]*)\ found,\ 0\ missing ]] ||
  fail "the Qdx conversion's textures are not found: $stats"

# Everything the host holds after each import (hierarchy, transforms,
# vertices, normals, UVs, colours, materials, cameras, lights, skins,
# animation), written back by the host as Qdx text: the same but for the
# save time and the folder the images went to.
for kind in glb qdx; do
  mkdir "$work/host-$kind"
  input="$work/model.glb"
  [ "$kind" = qdx ] && input="$work/qdx/model.qdx"
  "$bin/kestrel" convert "$input" "$work/host-$kind/scene.qdx" > /dev/null
  "$bin/qdx" convert "$work/host-$kind/scene.qdx" "$work/host-$kind.txt" --format ascii
  grep -v LastSaved_DateTime "$work/host-$kind.txt" | sed "s#$work/host-$kind/##" \
    > "$work/host-$kind.cmp"
done
diff -q "$work/host-glb.cmp" "$work/host-qdx.cmp" > /dev/null ||
  fail "the host scenes of the .glb and its Qdx conversion differ: $(diff "$work/host-glb.cmp" "$work/host-qdx.cmp" | head -n 20)"
diff -r "$work/host-glb/Textures" "$work/host-qdx/Textures" ||
  fail "the host scenes of the .glb and its Qdx conversion hold different images"

"$bin/kestrel" convert "$scene" "$work/host.glb" > /dev/null
"$bin/kestrel" convert "$work/qdx/model.qdx" "$work/host.gltf" > /dev/null
"$bin/kestrel" import "$work/host.glb" > /dev/null
if command -v node > /dev/null; then
  rc=0
  node "$validate" "$work/host.glb" "$work/host.gltf" "$work/model.glb" || rc=$?
  if [ "$rc" -eq 3 ]; then
    echo "skipped the validator: the gltf-validator package is not installed"
  elif [ "$rc" -ne 0 ]; then
    fail "the validator reports errors"
  fi
else
  echo "skipped the validator: node is not installed"
fi
echo "host glTF round trip passed"
