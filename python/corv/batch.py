"""Runs one corv command over many images on a Dask cluster.

    python3 -m corv.batch COMMAND [OPTIONS] FILE... -d OUTDIR [-- COMMAND OPTIONS]
    corv-batch COMMAND [OPTIONS] FILE... -d OUTDIR [-- COMMAND OPTIONS]

COMMAND is process, prepare or classify; everything after "--" goes to the
command as it is (for example "-- --filter sg:5 --crop 0,0,99,99"). Each file
is one task: `corv COMMAND FILE [COMMAND OPTIONS] -o OUTDIR/NAME...`, where
NAME is the file's name without its extension. A task writes into a folder of
its own under OUTDIR and moves its files into place only when the command has
succeeded, so OUTDIR holds every output of a file or none of them. A rerun
skips the files whose outputs are all there. A file that fails is reported
with the command's message; the others go on. The run ends with a summary
(done, skipped, failed) and exits 1 when a file failed.

The cluster is a local one on this machine unless --scheduler names the
address of a running Dask scheduler, whose workers must reach the same files
and have the corv tool.
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

COMMANDS = ("process", "prepare", "classify")
OUTPUT_EXTENSIONS = (".fla", ".raw", ".dat", ".img", ".hdr", ".hsz")


def find_corv():
    """The corv tool: $CORV_BIN, else the one on PATH, else the build tree's."""
    named = os.environ.get("CORV_BIN")
    if named:
        return named
    found = shutil.which("corv")
    if found:
        return found
    beside = Path(__file__).resolve().parents[2] / "bin" / "corv"
    if beside.is_file():
        return str(beside)
    raise SystemExit("corv-batch: cannot find the corv tool (put it on PATH or set CORV_BIN)")


def output_files(command, name, suffix, options):
    """The files a command writes for one image, relative to the output folder."""
    if command == "classify":
        method = options[options.index("--method") + 1] if "--method" in options else "sam"
        parts = ("_labels",) if method == "svm" else ("_values", "_indexes")
        return [f"{name}{part}{ext}" for part in parts for ext in (".fla", ".hdr")]
    if suffix == ".hsz":
        return [name + suffix]
    data = name + (".fla" if suffix == ".hdr" else suffix)
    return [data, name + ".hdr"]


def run_one(corv_bin, command, source, out_dir, suffix, options, threads):
    """One image: returns ("done", file, "") or ("failed", file, message)."""
    name = Path(source).stem
    out_dir = Path(out_dir)
    work = Path(tempfile.mkdtemp(prefix=f".{name}.", dir=out_dir))
    try:
        target = work / name if command == "classify" else work / (name + suffix)
        arguments = [corv_bin, command, source, *options, "-o", str(target)]
        environment = dict(os.environ)
        environment.setdefault("OMP_NUM_THREADS", str(threads))
        done = subprocess.run(arguments, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, env=environment)
        if done.returncode != 0:
            lines = [line for line in done.stderr.splitlines() if line.strip()]
            return ("failed", source, lines[-1] if lines else f"exit status {done.returncode}")
        files = output_files(command, name, suffix, options)
        missing = [f for f in files if not (work / f).is_file()]
        if missing:
            return ("failed", source, "corv " + command + " did not write " + ", ".join(missing))
        # The header (or the only file) last: the outputs are complete once it is there.
        for f in sorted(files, key=lambda f: f.endswith((".hdr", ".hsz"))):
            os.replace(work / f, out_dir / f)
        return ("done", source, "")
    except Exception as error:  # a task reports; it never takes the run down
        return ("failed", source, str(error))
    finally:
        shutil.rmtree(work, ignore_errors=True)


class progress_bar:
    """One line redrawn on a terminal; plain lines at every tenth elsewhere."""

    def __init__(self, total, stream=sys.stderr):
        self.total, self.count, self.stream = total, 0, stream
        self.terminal = stream.isatty()
        self.shown = -1

    def step(self):
        self.count += 1
        share = self.count / self.total if self.total else 1.0
        if self.terminal:
            filled = int(20 * share)
            self.stream.write(f"\rbatch [{'#' * filled}{'-' * (20 - filled)}] "
                              f"{self.count}/{self.total}")
            self.stream.flush()
        elif int(10 * share) != self.shown:
            self.shown = int(10 * share)
            self.stream.write(f"batch: {self.count}/{self.total}\n")

    def close(self):
        if self.terminal and self.total:
            self.stream.write("\n")


def parse(argv):
    parser = argparse.ArgumentParser(
        prog="corv-batch", description=__doc__.split("\n\n")[0],
        epilog="Options after -- go to the command unchanged.")
    parser.add_argument("command", choices=COMMANDS)
    parser.add_argument("files", nargs="+", metavar="FILE")
    parser.add_argument("-d", "--output-dir", required=True, metavar="OUTDIR")
    parser.add_argument("--suffix", default=".fla",
                        help="output format of process and prepare, by suffix: .fla (ENVI, "
                             "the default), .raw, .dat, .img, .hdr or .hsz")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="a running Dask scheduler (for example tcp://10.0.0.5:8786); "
                             "default: a local cluster on this machine")
    parser.add_argument("--workers", type=int, default=1,
                        help="worker processes of the local cluster (default 1)")
    parser.add_argument("--tasks", type=int, default=os.cpu_count() or 1,
                        help="files at once per worker of the local cluster (default: the "
                             "number of cores)")
    parser.add_argument("--corv", metavar="PATH", help="the corv tool (default: found)")
    if "--" in argv:
        split = argv.index("--")
        arguments, options = argv[:split], argv[split + 1:]
    else:
        arguments, options = argv, []
    args = parser.parse_args(arguments)
    if args.suffix not in OUTPUT_EXTENSIONS:
        parser.error(f"--suffix must be one of {', '.join(OUTPUT_EXTENSIONS)}")
    if "-o" in options or "--output" in options:
        parser.error("the outputs are named by the batch: leave -o out of the command options")
    if args.workers < 1 or args.tasks < 1:
        parser.error("--workers and --tasks must be at least 1")
    return args, options


def main(argv=None):
    args, options = parse(sys.argv[1:] if argv is None else argv)
    from distributed import Client, LocalCluster, as_completed

    corv_bin = args.corv or find_corv()
    if os.sep in corv_bin:  # the workers may run elsewhere
        corv_bin = str(Path(corv_bin).resolve())
    out_dir = Path(args.output_dir)
    out_dir.mkdir(parents=True, exist_ok=True)
    files = [os.path.abspath(f) for f in args.files]
    names = [Path(f).stem for f in files]
    if len(set(names)) != len(names):
        raise SystemExit("corv-batch: two files share a name; their outputs would collide")

    todo, skipped = [], 0
    for f, name in zip(files, names):
        expected = output_files(args.command, name, args.suffix, options)
        if all((out_dir / e).is_file() for e in expected):
            skipped += 1
        else:
            todo.append(f)

    done = failed = 0
    start = time.perf_counter()
    if todo:
        if args.scheduler:
            cluster, client = None, Client(args.scheduler)
            threads = 1
        else:
            cluster = LocalCluster(n_workers=args.workers, threads_per_worker=args.tasks,
                                   processes=True, dashboard_address=None)
            client = Client(cluster)
            threads = max(1, (os.cpu_count() or 1) // (args.workers * args.tasks))
        bar = progress_bar(len(todo))
        try:
            tasks = [client.submit(run_one, corv_bin, args.command, f, str(out_dir.resolve()),
                                   args.suffix, options, threads, pure=False) for f in todo]
            for finished in as_completed(tasks):
                state, source, message = finished.result()
                if state == "done":
                    done += 1
                else:
                    failed += 1
                    if bar.terminal:
                        sys.stderr.write("\n")
                    sys.stderr.write(f"corv-batch: {source}: {message}\n")
                bar.step()
        finally:
            bar.close()
            client.close()
            if cluster is not None:
                cluster.close()
    seconds = time.perf_counter() - start
    print(f"done {done}, skipped {skipped}, failed {failed} ({seconds:.1f} s)")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
