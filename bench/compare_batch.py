#!/usr/bin/python3
"""The batch runner on a local Dask cluster against a plain loop over the same files.

32 copies (links) of the bundled sample (200 x 300 x 33), each put through `corv process`
(illuminant and reflectance recovery, written as float ENVI):

- plain loop: `corv process FILE -o OUT` for one file after the other, each using every core;
- batch: `python3 -m corv.batch process FILES -d OUTDIR` on its default local cluster (one
  worker process running as many files at once as there are cores, the cores shared among
  their commands).

Prints the wall-clock time of each and their ratio; the outputs are checked to be the same.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare_batch.py [--files 32]
        [--command process|prepare] [--corv build/bin/corv]
"""

import argparse
import filecmp
import os
import shutil
import subprocess
import sys
import tempfile
import time

SAMPLE = os.path.join("data", "sample", "sample")
OPTIONS = {"process": [], "prepare": ["--filter", "wiener:5"]}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--files", type=int, default=32)
    parser.add_argument("--command", choices=sorted(OPTIONS), default="process")
    parser.add_argument("--corv", default=os.path.join("build", "bin", "corv"))
    args = parser.parse_args()
    corv_bin = os.path.abspath(args.corv)
    options = OPTIONS[args.command]

    with tempfile.TemporaryDirectory(prefix="corv-batch-") as folder:
        files = []
        for i in range(args.files):
            for extension in (".hdr", ".fla"):
                os.symlink(os.path.abspath(SAMPLE + extension),
                           os.path.join(folder, f"scene{i:02d}{extension}"))
            files.append(os.path.join(folder, f"scene{i:02d}.hdr"))
        loop_dir, batch_dir = os.path.join(folder, "loop"), os.path.join(folder, "batch")
        os.mkdir(loop_dir)

        start = time.perf_counter()
        for f in files:
            name = os.path.splitext(os.path.basename(f))[0]
            subprocess.run([corv_bin, args.command, f, *options, "-o",
                            os.path.join(loop_dir, name + ".fla")], check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        loop = time.perf_counter() - start

        start = time.perf_counter()
        done = subprocess.run([sys.executable, "-m", "corv.batch", args.command, *files, "-d",
                               batch_dir, "--corv", corv_bin, "--", *options],
                              capture_output=True, text=True)
        batch = time.perf_counter() - start
        if done.returncode != 0:
            raise SystemExit(done.stderr)
        same = all(filecmp.cmp(os.path.join(loop_dir, n), os.path.join(batch_dir, n),
                               shallow=False) for n in os.listdir(loop_dir))
        shutil.rmtree(loop_dir)

    print(f"{args.files} files of 200 x 300 x 33, corv {args.command} {' '.join(options)}; "
          f"{os.cpu_count()} cores, load average {os.getloadavg()[0]:.1f}")
    print(f"  plain loop  {loop:7.1f} s")
    print(f"  corv.batch  {batch:7.1f} s   ({done.stdout.strip()})")
    print(f"  loop / batch {loop / batch:.2f}; outputs identical: {same}")
    return 0 if same else 1


if __name__ == "__main__":
    sys.exit(main())
