#!/bin/sh
# Feeds bad scenes and bad arguments to every subcommand of the shadenet
# program and fails when any of them crashes (exit 128 or more), accepts
# what it must refuse, refuses without a message, or writes an image after
# refusing.
#
#   tests/bad_inputs/run.sh build/bin/shadenet
#
# Each case below is: the expected exit status (0, 1 or 2), what stderr must
# hold, then the arguments. What stderr must hold:
#   error    a line "shadenet <command>: error: ..."
#   warning  a line "shadenet <command>: warning: ..."
#   quiet    nothing
# $S is the folder of the bad scenes, $T a scratch folder, $OUT an image in it.
set -u
program=${1:?usage: run.sh PATH/TO/shadenet}
here=$(cd "$(dirname "$0")" && pwd)
S=$here/scenes
T=$(mktemp -d)
OUT=$T/out.png
trap 'rm -rf "$T"' EXIT

# Files too big or too odd to keep in the tree.
mkdir "$T/folder"
awk 'BEGIN { for (i = 0; i < 100000; i++) printf "["; for (i = 0; i < 100000; i++) printf "]"; print "" }' >"$T/deep.json"
awk 'BEGIN { printf "{\"nodes\": "; for (i = 0; i < 300; i++) printf "["; for (i = 0; i < 300; i++) printf "]"; print "}" }' >"$T/deep300.json"
printf '\001\002\377\376' >"$T/binary.json"
# A disk that is full, and an image to convert.
ln -s /dev/full "$T/full.png"
"$program" swatch checker --size 16 -o "$T/small.png" >/dev/null 2>&1

cases=$(cat <<'EOF'
0 quiet   check $S/good.json
0 quiet   preview $S/good.json -o $OUT --resolution 32 20
1 error   preview $S/missing.json -o $OUT
1 error   preview $T/folder -o $OUT
1 error   preview $S/zero_scale_camera.json -o $OUT
1 error   preview $S/nan_colour.json -o $OUT
1 error   preview $S/good.json -o $T/full.png
2 error   preview $S/good.json -o $OUT --resolution 0 10
2 error   preview $S/good.json -o $OUT --texture-resolution 1
2 error   preview $S/good.json -o $S/good.json
0 quiet   render $S/good.json -o $OUT -q
0 quiet   render $S/zero_scale_object.json -o $OUT -q
0 quiet   render $S/zero_scale_light.json -o $OUT -q
0 quiet   render $S/zero_radius.json -o $OUT -q
1 error   render $S/zero_scale_camera.json -o $OUT -q
1 error   check $S/zero_scale_camera.json
1 error   render $S/nan_translate.json -o $OUT -q
1 error   render $S/inf_rotate.json -o $OUT -q
1 error   render $S/overflow_translate.json -o $OUT -q
1 error   check $S/overflow_translate.json
1 error   render $S/far_translate.json -o $OUT -q
1 error   render $S/far_camera.json -o $OUT -q
1 error   render $S/huge_scale.json -o $OUT -q
1 error   render $S/nan_focal.json -o $OUT -q
1 error   render $S/zero_focal.json -o $OUT -q
1 error   render $S/negative_aperture.json -o $OUT -q
1 error   render $S/inf_aperture.json -o $OUT -q
1 error   render $S/zero_ortho_width.json -o $OUT -q
1 error   render $S/near_above_far.json -o $OUT -q
1 error   check $S/near_above_far.json
1 error   render $S/negative_near.json -o $OUT -q
1 error   render $S/nan_far.json -o $OUT -q
1 error   render $S/huge_resolution.json -o $OUT -q
1 error   check $S/huge_resolution.json
1 error   render $S/zero_resolution.json -o $OUT -q
2 error   render $S/good.json -o $OUT -q --resolution 200000 200000
1 error   render $S/nan_colour.json -o $OUT -q
1 error   check $S/nan_colour.json
1 error   render $S/inf_colour.json -o $OUT -q
1 error   render $S/nan_light_colour.json -o $OUT -q
0 warning render $S/nan_diffuse.json -o $OUT -q
0 warning render $S/fog_without_group.json -o $OUT -q
0 warning check $S/nan_diffuse.json
1 error   render $S/negative_radius.json -o $OUT -q
1 error   render $S/inf_radius.json -o $OUT -q
1 error   check $S/inf_radius.json
0 warning check $S/no_camera.json
1 error   render $S/no_camera.json -o $OUT -q
1 error   check $S/no_camera.json --camera nobody
0 warning check $S/no_lights.json
0 warning check $S/no_material.json
0 warning check $S/no_group.json
0 warning check $S/loop.json
0 warning render $S/loop.json -o $OUT -q
1 error   check $S/mesh_missing.json
1 error   render $S/mesh_missing.json -o $OUT -q
1 error   check $S/mesh_empty.json
1 error   check $S/mesh_garbage.json
1 error   check $S/mesh_bad_index.json
1 error   render $S/mesh_bad_index.json -o $OUT -q
1 error   check $S/mesh_far_vertex.json
1 error   render $S/mesh_far_vertex.json -o $OUT -q
1 error   check $S/mesh_no_file.json
1 error   check $S/mesh_folder.json
1 error   check $S/empty.json
1 error   check $S/malformed.json
1 error   render $S/malformed.json -o $OUT -q
1 error   check $S/not_an_object.json
1 error   check $S/unknown_type.json
1 error   check $S/unknown_attribute.json
1 error   check $S/wrong_type.json
1 error   check $S/wrong_bool.json
1 error   check $S/bad_connection.json
1 error   check $T/deep.json
1 error   render $T/deep.json -o $OUT -q
1 error   check $T/deep300.json
1 error   check $T/binary.json
1 error   check $T/folder
1 error   render $T/folder -o $OUT -q
1 error   check $T/missing.json
1 error   render $T/missing.json -o $OUT -q
0 warning render $S/good.json -o $OUT -q --threads 100000
2 error   render $S/good.json -o $OUT -q --threads 0
2 error   render $S/good.json -o $OUT -q --threads many
2 error   render $S/good.json -o $OUT -q --resolution 0 16
2 error   render $S/good.json -o $OUT -q --resolution wide 16
2 error   render $S/good.json -o $OUT -q --spp 0
2 error   render $S/good.json -o $OUT -q --spp 100000
2 error   render $S/good.json -o $OUT -q --depth -1
1 error   render $S/good.json -o $OUT -q --region 10 10 5 5
1 error   render $S/good.json -o $OUT -q --camera nobody
0 quiet   render $S/good.json -o $OUT -q --set mat.diffuse=0.5 --set ballXf.translateX=0.25
2 error   render $S/good.json -o $OUT -q --set mat.diffuse=loud
2 error   render $S/good.json -o $OUT -q --set nobody.diffuse=1
2 error   render $S/good.json -o $OUT -q --set mat.diffuse
2 error   render $S/good.json -o $OUT -q --set mat.outColor=[1,0,0]
2 error   render $S/good.json -o $OUT -q --set
1 error   render $S/good.json -o $OUT -q --set ballXf.translateX=1e39
0 warning render $S/good.json -o $OUT -q --set mat.diffuse=nan
2 error   render $S/good.json -o $OUT -q --frames 5-1
2 error   render $S/good.json -o $OUT -q --frames 1-x
2 error   render $S/good.json -o $OUT -q --frames 1-2 --frame 1
2 error   render $S/good.json -o $OUT -q --frame 99999999
2 error   render $S/good.json -o $OUT -q --pass colour
2 error   render $S/good.json -o $OUT -q --colorspace nowhere
2 error   render $S/good.json -o $OUT -q --view nowhere
2 error   render $S/good.json -o $OUT -q --colorspace sRGB --view Raw
2 error   render $S/good.json -o $OUT -q --half
2 error   render $S/good.json -o $OUT -q --bits 12
2 error   render $S/good.json -o $OUT -q --compression zip
2 error   render $S/good.json -o $T/out.exr -q --compression lzma
2 error   render $S/good.json -o $OUT -q --crop
2 error   render
2 error   check
1 error   compile $T/folder ballSG
1 error   compile $T/missing.json ballSG
1 error   compile $T/deep.json ballSG
2 error   compile $S/good.json noSuchGroup
2 error   compile $S/good.json ballSG --option noSuchOption
0 quiet   compile $S/loop.json ballSG
1 error   swatch $T/folder:mat -o $OUT
1 error   swatch $T/missing.json:mat -o $OUT
1 error   swatch $T/deep.json:mat -o $OUT
1 error   swatch $S/nan_colour.json:mat -o $OUT
1 error   swatch noSuchType -o $OUT
2 error   swatch lambert -o $OUT --size 0
2 error   swatch lambert -o $OUT --size 100000
2 error   swatch --sheet noSuchSheet -o $OUT
1 error   bot info $T/missing.bot
1 error   bot info $S/good.json
1 error   bot info $T/folder
1 error   bot convert $T/missing.png -o $T/out.bot
2 error   bot convert $T/small.png -o $T/small.png
2 error   bot convert $T/small.png -o $T/../$(basename $T)/small.png
1 error   bot convert $T/small.png -o $T/full.png
1 error   render $S/good.json -q -o $T/full.png
1 error   swatch checker --size 16 -o $T/full.png
1 error   render $S/good.json -q -o $T/folder
2 error   frobnicate
2 error   bot frobnicate
2 error
EOF
)

failures=0
count=0
fail() {
    echo "FAIL: shadenet $1: $2" >&2
    failures=$((failures + 1))
}

while read -r expect wants rest; do
    [ -z "$expect" ] && continue
    count=$((count + 1))
    eval "set -- $rest"
    rm -f "$OUT"
    "$program" "$@" >"$T/stdout" 2>"$T/stderr"
    status=$?
    # The command a message names: "render", "bot info", or none at all.
    case ${1:-} in
        bot) case ${2:-} in convert | info | extract) command=" bot $2" ;; *) command=" bot" ;; esac ;;
        check | compile | name | nodes | preview | render | swatch) command=" $1" ;;
        *) command="" ;;
    esac
    if [ "$status" -ge 128 ]; then
        fail "$rest" "crashed with status $status: $(head -c 300 "$T/stderr")"
        continue
    fi
    if [ "$status" -ne "$expect" ]; then
        fail "$rest" "exit $status, expected $expect: $(head -c 300 "$T/stderr")"
        continue
    fi
    case $wants in
        error) grep -q "^shadenet$command: error: ." "$T/stderr" || fail "$rest" "no 'shadenet$command: error:' message" ;;
        warning) grep -q "^shadenet$command: warning: ." "$T/stderr" || fail "$rest" "no 'shadenet$command: warning:' message" ;;
        quiet) [ -s "$T/stderr" ] && fail "$rest" "unexpected message: $(head -c 300 "$T/stderr")" ;;
    esac
    if [ "$status" -ne 0 ] && [ -e "$OUT" ]; then
        fail "$rest" "refused, yet wrote $OUT"
    fi
done <<EOF
$cases
EOF

echo "bad inputs: $count cases, $failures failed"
[ "$failures" -eq 0 ]
