#!/usr/bin/python3
"""Damaged-file sweep: mutated copies of every file kind the system reads, run
through the command line, the Python module and the viewer.

Each run must end with exit status 0 or 1 (a refusal: one line on stderr),
within the time limit, and a refused conversion must leave no output (and no
temporary file) behind. Anything else is a finding: the mutant is kept under
--keep with a line in findings.txt, and the script exits with status 1.

    fuzz/mutate_files.py --build build --count 300 --tools cli,python,viewer

Workspace files (tvw) are read by the viewer only.
"""

import argparse
import collections
import io
import os
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)

# ---------------------------------------------------------------- mutations


def mutate_bytes(data, rng):
    """A few bytes changed, a run overwritten, bytes inserted or the file cut."""
    data = bytearray(data)
    if not data:
        return bytes(rng.randrange(256) for _ in range(rng.randint(1, 64)))
    choice = rng.random()
    # Half of the changes land in the first 4 KiB, where file structures live.
    where = lambda: rng.randrange(min(len(data), 4096) if rng.random() < 0.5 else len(data))
    if choice < 0.5:
        for _ in range(rng.randint(1, 8)):
            data[where()] = rng.randrange(256)
    elif choice < 0.7:
        at = where()
        fill = rng.choice([0, 0xFF, rng.randrange(256)])
        for i in range(at, min(len(data), at + rng.randint(1, 16))):
            data[i] = fill
    elif choice < 0.85:
        at = where()
        data[at:at] = bytes(rng.randrange(256) for _ in range(rng.randint(1, 16)))
    else:
        del data[rng.randrange(len(data)):]
    return bytes(data)


JUNK = ["", "-1", "0", "4294967297", "99999999999999999999", "1e308", "nan", "-inf", "{", "}",
        "{1,2", "x", "=", ",,,", "\t", "\"", "\x00", "\xff", "65536", "1.5", "12 13"]


def mutate_text(data, rng):
    """Header-aware changes of a text file: fields, lines, braces, line ends."""
    if rng.random() < 0.25:
        return mutate_bytes(data, rng)
    text = data.decode("latin-1")
    lines = text.split("\n")
    choice = rng.random()
    i = rng.randrange(len(lines))
    if choice < 0.35:
        numbers = list(re.finditer(r"-?\d+(\.\d+)?", lines[i]))
        if numbers:
            m = rng.choice(numbers)
            lines[i] = lines[i][:m.start()] + rng.choice(JUNK) + lines[i][m.end():]
        elif "=" in lines[i]:
            lines[i] = lines[i].split("=")[0] + "= " + rng.choice(JUNK)
        else:
            lines[i] = rng.choice(JUNK)
    elif choice < 0.5:
        del lines[i]
    elif choice < 0.6:
        lines.insert(i, lines[rng.randrange(len(lines))])
    elif choice < 0.7:
        lines.insert(i, rng.choice(JUNK) + " = " + rng.choice(JUNK))
    elif choice < 0.8:
        lines[i] = lines[i].replace("{", "").replace("}", "") + rng.choice(["{", "}", ""])
    elif choice < 0.9:
        return text.replace("\n", rng.choice(["\r", "\r\n"])).encode("latin-1")
    else:
        return data[:rng.randrange(len(data) + 1)]
    return "\n".join(lines).encode("latin-1")


FORMULA_TOKENS = ["I1[0]", "I1[32]", "I2[1]", "I0[1]", "I1[-1]", "I1[99999999999]", "I", "[", "]",
                  "(", ")", "+", "-", "*", "/", "^", "<", ">", "1", "0", "2.5", "1e-5", "i1[2]",
                  " ", "nan", "-", "--", "I1[", "I1]0["]


def mutate_formula(rng):
    if rng.random() < 0.5:
        return "".join(rng.choice(FORMULA_TOKENS) for _ in range(rng.randint(0, 24)))
    base = bytearray(b"(I1[30] - I1[10]) / (I1[30] + I1[10]) * 2^2 > 0.5")
    for _ in range(rng.randint(1, 4)):
        base[rng.randrange(len(base))] = rng.choice(b"()[]+-*/^<>I0123456789. e")
    return base.decode()


def mutate_workspace(data, rng, escape_name):
    """A workspace archive changed as a whole, or rebuilt with its record or one
    member changed, a member left out, or a member of a hostile name added."""
    if rng.random() < 0.2:
        return mutate_bytes(data, rng)
    with zipfile.ZipFile(io.BytesIO(data)) as archive:
        members = [(info.filename, archive.read(info)) for info in archive.infolist()]
    choice = rng.random()
    i = rng.randrange(len(members))
    if choice < 0.45:
        i = [name for name, _ in members].index("tavrel.dat")
        members[i] = (members[i][0], mutate_bytes(members[i][1], rng))
    elif choice < 0.75:
        name, content = members[i]
        change = mutate_text if name.endswith(".hdr") else mutate_bytes
        members[i] = (name, change(content, rng))
    elif choice < 0.85:
        del members[i]
    else:
        name = rng.choice([escape_name, "/" + escape_name.lstrip("./"), "a/" + escape_name,
                           members[i][0]])
        members.append((name, members[i][1]))
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED, compresslevel=1) as archive:
        for name, content in members:
            archive.writestr(zipfile.ZipInfo(name), content, zipfile.ZIP_DEFLATED)
    return out.getvalue()


def labelled_workspace_record(image):
    """A workspace record of one image with a polygon label, written the way
    QDataStream writes it: what the viewer's own files look like once labelled."""

    def text(value):
        data = value.encode("utf-16-be")
        return struct.pack(">I", len(data)) + data

    def value(type_id, payload):
        return struct.pack(">Ib", type_id, 0) + payload

    def count(n):
        return struct.pack(">i", n)

    bool_type, int_type, map_type, colour_type, polygon_type = 1, 2, 8, 67, 86
    label = value(map_type, count(4)
                  + text("checked") + value(bool_type, b"\1")
                  + text("colour") + value(colour_type, struct.pack(">bHHHHH", 1, 0xFFFF, 0x0A0A,
                                                                    0xC8C8, 0x1E1E, 0))
                  + text("polygon") + value(polygon_type, count(4) + struct.pack(
                      ">8d", 1, 1, 5, 1, 5, 4, 1, 1))
                  + text("selected") + value(bool_type, b"\0"))
    return (struct.pack(">Ii", 0xA0B0C0D0, 1000) + count(1) + text(image)
            + count(1) + label + text("grass") + text("Pipeline settings:")
            + count(1) + text("grass")
            + count(1) + text("crop") + struct.pack(">6d", 1, 1, 4, 4, 100, 100) + count(0)
            + count(1) + text("library.slz")
            + count(2) + text("component=1") + text("scale=2")
            + value(map_type, count(1) + text("current") + value(int_type, count(0))))


def write_workspace_seeds(tavrel, image, hsz, folder):
    """Workspaces of the viewer (referring to the image, carrying it and an HSZ
    file, and one with a label), each with its record beside it."""
    os.makedirs(folder, exist_ok=True)
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    refers, portable = os.path.join(folder, "refers.tvw"), os.path.join(folder, "portable.tvw")
    run([tavrel, "--save-workspace", refers, image], env=env)
    run([tavrel, "--save-workspace", portable, "--portable", image, hsz], env=env)
    labelled = os.path.join(folder, "labelled.tvw")
    with zipfile.ZipFile(portable) as source, zipfile.ZipFile(labelled, "w") as target:
        for info in source.infolist():
            content = source.read(info)
            if info.filename == "tavrel.dat":
                content = labelled_workspace_record(os.path.basename(image))
            target.writestr(info, content)
    for archive in (refers, portable, labelled):
        with open(archive[:-4] + ".dat", "wb") as record:
            record.write(zipfile.ZipFile(archive).read("tavrel.dat"))
    return [refers, portable, labelled]


# ------------------------------------------------------------------ seeds


def run(command, **kw):
    """Runs a command that must succeed, quietly."""
    return subprocess.run(command, check=True, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, **kw)


def make_seeds(corv, tavrel, folder):
    """Small files of every kind, written by this system from the bundled sample."""
    sample = os.path.join(SOURCE, "data", "sample", "sample.hdr")
    small = os.path.join(folder, "small.fla")
    run([corv, "prepare", sample, "-o", small, "--crop", "0,0,11,15"])
    run([corv, "process", os.path.join(folder, "small.hdr"), "-o", os.path.join(folder, "raw.hsz"),
         "--illuminant", "gray-world", "--materials"])
    run([corv, "convert", os.path.join(folder, "raw.hsz"), "--components",
         os.path.join(folder, "parts", "small")])
    run([corv, "process", os.path.join(folder, "small.hdr"), "-o",
         os.path.join(folder, "curves.hsz"), "--illuminant", "gray-world", "--materials", "--set",
         "nurbs_encoding=1"])
    csv = os.path.join(folder, "library.csv")
    with open(csv, "w") as out:
        out.write("Wavelength,grass,\"soil, dry\",water\n")
        for b in range(33):
            out.write("%g,%g,%g,%g\n" % (400 + 10 * b, 0.1 + b / 100, 0.3, 0.05))
    run([corv, "library", "from-csv", csv, os.path.join(folder, "library.slz")])
    seeds = {
        "hsz": [os.path.join(folder, "raw.hsz"), os.path.join(folder, "curves.hsz")],
        "slz": [os.path.join(folder, "library.slz")],
        "csv": [csv],
        "envi-header": [os.path.join(folder, "small.hdr")],
        "envi-data": [os.path.join(folder, "small.fla")],
        "components": [os.path.join(folder, "parts")],
        "bandmath": [os.path.join(folder, "small.hdr")],
    }
    if os.path.exists(tavrel):
        seeds["tvw"] = write_workspace_seeds(tavrel, os.path.join(folder, "small.hdr"),
                                             os.path.join(folder, "raw.hsz"),
                                             os.path.join(folder, "workspaces"))
    tiff = os.path.join(folder, "small.tif")
    if shutil.which("gdal_translate"):
        run(["gdal_translate", "-q", "-of", "GTiff", small, tiff])
        seeds["tiff"] = [tiff]
    sli = os.path.join(SOURCE, "..", "shared", "data", "enmap-box")
    for name in sorted(os.listdir(sli)) if os.path.isdir(sli) else []:
        if name.endswith(".sli") and os.path.exists(os.path.join(sli, name[:-4] + ".hdr")):
            target = os.path.join(folder, name)
            shutil.copy(os.path.join(sli, name), target)
            shutil.copy(os.path.join(sli, name[:-4] + ".hdr"), target[:-4] + ".hdr")
            seeds.setdefault("sli", []).append(target)
            break
    return seeds


def mutant(kind, seed, rng, folder):
    """Writes one mutant of the kind into the folder; returns the path to open."""
    if kind == "bandmath":
        return mutate_formula(rng)
    if kind == "components":
        target = os.path.join(folder, "parts")
        shutil.copytree(seed, target)
        names = sorted(os.listdir(target))
        victim = os.path.join(target, rng.choice(names))
        change = mutate_text if victim.endswith(".hdr") else mutate_bytes
        with open(victim, "rb") as f:
            data = change(f.read(), rng)
        with open(victim, "wb") as f:
            f.write(data)
        return os.path.join(target, "small")
    stem, extension = os.path.splitext(os.path.basename(seed))
    if kind == "tvw":
        target = os.path.join(folder, stem + extension)
        with open(seed, "rb") as f:
            data = mutate_workspace(f.read(), rng, "../" + ESCAPE)
        with open(target, "wb") as f:
            f.write(data)
        return target
    if kind in ("envi-header", "envi-data", "sli"):
        for companion in (".hdr", ".fla", ".sli"):
            source = os.path.join(os.path.dirname(seed), stem + companion)
            if os.path.exists(source):
                shutil.copy(source, os.path.join(folder, stem + companion))
        victim = os.path.join(folder, stem + (".hdr" if kind != "envi-data" else ".fla"))
        if kind == "sli" and rng.random() < 0.5:
            victim = os.path.join(folder, stem + ".sli")
    else:
        victim = os.path.join(folder, stem + extension)
        shutil.copy(seed, victim)
    textual = victim.endswith((".hdr", ".csv"))
    with open(victim, "rb") as f:
        data = (mutate_text if textual else mutate_bytes)(f.read(), rng)
    with open(victim, "wb") as f:
        f.write(data)
    return os.path.join(folder, stem + (extension if kind != "envi-data" else ".hdr"))


# ------------------------------------------------------------------ runners

LIBRARY_KINDS = ("slz", "csv", "sli")
VIEWER_KINDS = ("tvw",)  # read only by the viewer
# The name of a workspace member that tries to lead out of the folder it is
# extracted into; it must never appear beside that folder.
ESCAPE = "corv-escaped-member-%d" % os.getpid()


def cli_commands(corv, kind, target, out):
    if kind in LIBRARY_KINDS:
        return [[corv, "library", "info", target],
                [corv, "library", "to-csv", target, os.path.join(out, "out.csv")]]
    if kind == "components":
        return [[corv, "info", "--components", target],
                [corv, "convert", target, os.path.join(out, "out.fla"), "--from-components"]]
    if kind == "bandmath":
        image = os.path.join(out, "..", "seeds", "small.hdr")
        formula = " " + target if target.startswith("-") else target  # not an option
        return [[corv, "bandmath", formula, image, image, "-o", os.path.join(out, "out.fla")]]
    extension = ".fla" if kind == "hsz" else ".hsz"
    return [[corv, "info", target], [corv, "convert", target, os.path.join(out, "out" + extension)]]


PYTHON_WORKER = r"""
import os, sys, corv
seeds = sys.argv[1]
results = os.fdopen(int(sys.argv[2]), "w")
image = None
for line in sys.stdin:
    kind, target = line.rstrip("\n").split("\t", 1)
    try:
        if kind == "slz":
            library = corv.spectral_library(); library.load(target); library.endmembers
        elif kind == "csv":
            corv.read_library_csv(target).endmembers
        elif kind == "sli":
            corv.read_envi_library(target).endmembers
        elif kind == "components":
            folder, prefix = target.rsplit("/", 1)
            c = corv.component_input(folder, prefix); c.I()
        elif kind == "bandmath":
            if image is None:
                image = corv.open_input(seeds + "/small.hdr").I()
            corv.band_maths([image, image], target)
        else:
            i = corv.open_input(target); i.wavelengths(); (i.s() if getattr(i, "is_reflectance", False) else i.I())
        result = "ok"
    except Exception as error:
        text = str(error)
        result = "refused" if text and "\n" not in text.strip() else "bad message: " + repr(text)
    print(result, file=results, flush=True)
"""


class python_worker:
    """One interpreter for many files; a file that kills it is a finding."""

    def __init__(self, build, seeds):
        self.build, self.seeds, self.process = build, seeds, None

    def start(self):
        # Results come on a pipe of their own: the library may print to stdout and stderr.
        env = dict(os.environ, PYTHONPATH=os.path.join(self.build, "python"))
        read_end, write_end = os.pipe()
        self.process = subprocess.Popen([sys.executable, "-c", PYTHON_WORKER, self.seeds,
                                         str(write_end)], pass_fds=(write_end,),
                                        stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, text=True, env=env)
        os.close(write_end)
        self.results = os.fdopen(read_end)

    def check(self, kind, target, timeout):
        if self.process is None:
            self.start()
        self.process.stdin.write("%s\t%s\n" % (kind, target))
        self.process.stdin.flush()
        timer = _watchdog(self.process, timeout)
        line = self.results.readline().strip()
        timer.cancel()
        if line:
            return line
        code = self.process.wait()
        self.results.close()
        self.process = None
        return "timed out" if code == -signal.SIGKILL else "died: %s" % describe(code)


class _watchdog:
    def __init__(self, process, timeout):
        import threading
        self.timer = threading.Timer(timeout, process.kill)
        self.timer.start()

    def cancel(self):
        self.timer.cancel()


def describe(code):
    if code < 0:
        return "signal %s" % signal.Signals(-code).name
    return "exit status %d" % code


def check_command(command, out, timeout, env=None):
    """None when the run behaved, else what went wrong."""
    try:
        done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                              timeout=timeout, env=env, stdin=subprocess.DEVNULL)
    except subprocess.TimeoutExpired:
        return "timed out"
    left = [n for n in os.listdir(out) if ".part" in n]
    if done.returncode not in (0, 1):
        return describe(done.returncode)
    if left:
        return "temporary files left behind: %s" % left
    if done.returncode == 1:
        produced = [n for n in os.listdir(out) if n.startswith("out")]
        lines = [l for l in done.stderr.decode(errors="replace").splitlines() if l.strip()]
        if produced:
            return "refused but left %s" % produced
        if len(lines) != 1 and "--screenshot" not in command:
            return "refusal is not one line: %r" % lines
    return None


# -------------------------------------------------------------------- main


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=os.path.join(SOURCE, "build"))
    parser.add_argument("--count", type=int, default=200, help="mutants per kind and tool")
    parser.add_argument("--kinds", default="hsz,slz,csv,sli,envi-header,envi-data,tiff,"
                        "components,bandmath,tvw")
    parser.add_argument("--tools", default="cli,python")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--timeout", type=float, default=60.0)
    parser.add_argument("--keep", default="mutation-findings")
    parser.add_argument("--add-seed", action="append", default=[], metavar="KIND=FILE",
                        help="mutate this file too (e.g. hsz=old.hsz)")
    args = parser.parse_args()

    build = os.path.abspath(args.build)
    corv = os.path.join(build, "bin", "corv")
    tavrel = os.path.join(build, "bin", "tavrel")
    rng = random.Random(args.seed)
    work = tempfile.mkdtemp(prefix="corv-mutants-")
    seeds_dir = os.path.join(work, "seeds")
    os.makedirs(seeds_dir)
    seeds = make_seeds(corv, tavrel, seeds_dir)
    for extra in args.add_seed:
        kind, path = extra.split("=", 1)
        copy = os.path.join(seeds_dir, "extra-" + os.path.basename(path))
        shutil.copy(path, copy)
        seeds.setdefault(kind, []).append(copy)
    worker = python_worker(build, seeds_dir)
    viewer_env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    tally = collections.defaultdict(collections.Counter)
    findings = []
    started = time.time()
    for kind in args.kinds.split(","):
        if kind not in seeds:
            print("%-12s no seed (skipped)" % kind)
            continue
        for tool in args.tools.split(","):
            for n in range(args.count):
                case = os.path.join(work, "case")
                shutil.rmtree(case, ignore_errors=True)
                os.makedirs(case)
                target = mutant(kind, rng.choice(seeds[kind]), rng, case)
                out = os.path.join(work, "out")
                shutil.rmtree(out, ignore_errors=True)
                os.makedirs(out)
                problems = []
                if tool in ("cli", "python") and kind in VIEWER_KINDS:
                    continue
                if tool == "cli":
                    for command in cli_commands(corv, kind, target, out):
                        problem = check_command(command, out, args.timeout)
                        if problem:
                            problems.append("%s: %s" % (" ".join(command[1:3]), problem))
                elif tool == "python":
                    result = worker.check(kind, target, args.timeout)
                    if result not in ("ok", "refused"):
                        problems.append(result)
                elif tool == "viewer" and kind not in LIBRARY_KINDS + ("bandmath", "components"):
                    command = [tavrel, "--screenshot", os.path.join(out, "out.png"), target]
                    problem = check_command(command, out, args.timeout, viewer_env)
                    if problem and not problem.startswith("refused but left"):
                        problems.append(problem)
                    escaped = os.path.join(tempfile.gettempdir(), ESCAPE)
                    if os.path.exists(escaped):
                        os.remove(escaped)
                        problems.append("a member escaped its folder: " + escaped)
                else:
                    continue
                tally[(kind, tool)]["runs"] += 1
                if problems:
                    tally[(kind, tool)]["findings"] += 1
                    keep = os.path.join(args.keep, "%s-%s-%d" % (kind, tool, n))
                    if kind == "bandmath":
                        os.makedirs(keep, exist_ok=True)
                        with open(os.path.join(keep, "formula.txt"), "w") as f:
                            f.write(target)
                    else:
                        shutil.copytree(case, keep, dirs_exist_ok=True)
                    findings.append("%s: %s" % (keep, "; ".join(problems)))
            print("%-12s %-7s %5d runs, %d findings" % (kind, tool, tally[(kind, tool)]["runs"],
                                                        tally[(kind, tool)]["findings"]), flush=True)
    shutil.rmtree(work, ignore_errors=True)
    print("%d findings in %.0f s" % (len(findings), time.time() - started))
    if findings:
        os.makedirs(args.keep, exist_ok=True)
        with open(os.path.join(args.keep, "findings.txt"), "w") as f:
            f.write("\n".join(findings) + "\n")
        for line in findings[:40]:
            print("  " + line)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
