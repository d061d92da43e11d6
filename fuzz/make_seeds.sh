#!/usr/bin/env bash
# Writes the fuzzers' seed corpora into DIR/<target>/ with the corv tool: small
# files of every kind that this system writes, and a few formulas.
#   fuzz/make_seeds.sh build/bin/corv DIR
set -euo pipefail
corv=$1
out=$2
source_dir="$(cd "$(dirname "$0")/.." && pwd)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"/{envi,library_csv,band_maths,hsz,slz,workspace}

"$corv" prepare "$source_dir/data/sample/sample.hdr" -o "$work/small.fla" --crop 0,0,7,9 \
  --remove-bands "$(seq -s, 8 32)" >/dev/null
for type in 1 2 4 12; do
  "$corv" convert "$work/small.hdr" "$work/t$type.fla" --data-type $type >/dev/null
  cp "$work/t$type.hdr" "$out/envi/type$type.hdr"
done
cp "$source_dir/data/sample/sample.hdr" "$out/envi/sample.hdr"
printf 'ENVI\nsamples = 4\nlines = 4\nbands = 2\nheader offset = 16\ndata type = 5\n'\
'interleave = bil\nbyte order = 1\nband names = {376.44 Nanometers, 0.5 um}\n' \
  >"$out/envi/names.hdr"
printf 'ENVI\nsamples = 3\nlines = 4\nbands = 1\ndata type = 4\nfile type = ENVI Spectral Library\n'\
'wavelength units = Micrometers\nwavelength = {0.4, 0.5, 0.6}\nspectra names = {a, b, c, d}\n' \
  >"$out/envi/library.hdr"

cat >"$out/library_csv/columns.csv" <<'CSV'
Wavelength,grass,"soil, dry",water
400,0.1,0.3,0.05
500,0.2,0.31,0.04
600,0.15,0.35,0.03
CSV
printf 'name,400,500,600\r\nsnow,0.9,0.95,0.97\r\n"rock ""a""",0.2,0.2,\r\n' \
  >"$out/library_csv/rows.csv"
"$corv" library from-csv "$out/library_csv/columns.csv" "$out/slz/library.slz" >/dev/null

i=0
for formula in '(I1[2] - I1[0]) / (I1[2] + I1[0])' '2*(3+4)^2' '-(I1[0]+I2[4]) > 0.5' \
  'I1[1] ^ I2[0] < 1e-5' 'I2[3]*-I1[1]/(1-I1[0])'; do
  printf '%s' "$formula" >"$out/band_maths/formula$((i++))"
done

"$corv" process "$work/small.hdr" -o "$out/hsz/raw.hsz" --illuminant gray-world --materials \
  --set max_clusters=3 >/dev/null 2>&1
"$corv" process "$work/small.hdr" -o "$out/hsz/curves.hsz" --illuminant gray-world --materials \
  --set max_clusters=3 --set nurbs_encoding=1 >/dev/null 2>&1

# Workspaces of the viewer and their records (fuzz/mutate_files.py writes them).
tavrel="$(dirname "$corv")/tavrel"
if [ -x "$tavrel" ]; then
  /usr/bin/python3 -c 'import sys; sys.path.insert(0, sys.argv[1]); import mutate_files as m
m.write_workspace_seeds(*sys.argv[2:])' "$(dirname "$0")" "$tavrel" "$work/small.hdr" \
    "$out/hsz/raw.hsz" "$out/workspace"
fi
