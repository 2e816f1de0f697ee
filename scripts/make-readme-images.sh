#!/usr/bin/env bash
# Builds the program and makes the README's pictures in docs/ from the bundled sample photo:
# a crop enlarged by nearest neighbour, by a cubic filter and by quorblen side by side, and
# the sample strokes before and after inpainting.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_missing_packages
configure_and_build build -DCMAKE_BUILD_TYPE=Release -DQUORBLEN_BUILD_TESTS=OFF \
    -DQUORBLEN_BUILD_BENCHMARKS=OFF -- quorblen quorblen_module

quorblen="$QUORBLEN_ROOT/build/bin/quorblen"
photo="$QUORBLEN_ROOT/data/coffee.png"
mask="$QUORBLEN_ROOT/data/coffee-mask.png"
docs="$QUORBLEN_ROOT/docs"
font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$docs"

# label IMAGE TEXT OUT: IMAGE with TEXT in its top left corner, white over a dark shadow.
label() {
    oiiotool "$1" --text:x=11:y=27:size=20:color=0,0,0:font="$font" "$2" \
        --text:x=10:y=26:size=20:color=1,1,1:font="$font" "$2" -o "$3"
}

# The spoon and the cup's rim: a 96 x 72 crop of the photo, 192 x 144 once enlarged, shown at
# twice that size with square pixels so that every method's own pixels stay visible.
crop=192x144+632+420
"$quorblen" upscale "$photo" "$work/quorblen.png" -q
oiiotool "$photo" --resample 1200x800 -o "$work/nearest.png"
oiiotool "$photo" --resize:filter=catmull-rom 1200x800 -o "$work/cubic.png"
for method in nearest cubic quorblen; do
    oiiotool "$work/$method.png" --cut "$crop" --resample 384x288 -o "$work/$method-crop.png"
    label "$work/$method-crop.png" "$method" "$work/$method-label.png"
done
oiiotool "$work/nearest-label.png" "$work/cubic-label.png" "$work/quorblen-label.png" \
    --mosaic:pad=6 3x1 --compression jpeg:88 -o "$docs/upscale-comparison.jpg"

# The five sample strokes painted white over the photo, and the texture fill of the README.
oiiotool "$photo" "$mask" --ch 0,0,0 --max -o "$work/strokes.png"
"$quorblen" inpaint "$photo" "$work/filled.png" --mask "$mask" --method texture \
    --search-radius 20 -q
label "$work/strokes.png" "holes" "$work/strokes-label.png"
label "$work/filled.png" "quorblen inpaint --method texture" "$work/filled-label.png"
oiiotool "$work/strokes-label.png" "$work/filled-label.png" --mosaic:pad=6 2x1 \
    --compression jpeg:88 -o "$docs/inpaint-before-after.jpg"

ls -l "$docs"
