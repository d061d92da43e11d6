"""Installing: into a prefix with `cmake --install`, and as the Debian package
unpacked with `dpkg-deb -x`. Each installation is then used from where it lies
only: no build folder on any path, nothing from the environment."""

import os
import subprocess
from pathlib import Path

import pytest

SOURCE_DIR = Path(os.environ.get("CORV_SOURCE_DIR") or Path(__file__).resolve().parents[2])
BUILD_DIR = Path(os.environ.get("CORV_BUILD_DIR") or SOURCE_DIR / "build").resolve()
SAMPLE = SOURCE_DIR / "data" / "sample" / "sample.hdr"
CONSUMER = Path(__file__).resolve().parent / "consumer"
PYTHON = "/usr/bin/python3"

# What an installation holds, relative to its prefix.
INSTALLED = [
    "bin/corv",
    "bin/tavrel",
    "lib/libcorvantis.so",
    "include/corv/pipeline/pipeline.h",
    "lib/cmake/Corvantis/CorvantisConfig.cmake",
    "lib/pkgconfig/corvantis.pc",
    "share/applications/tavrel.desktop",
    "share/mime/packages/tavrel.xml",
    "share/man/man1/corv.1.gz",
    "share/man/man1/tavrel.1.gz",
    "share/bash-completion/completions/corv",
]


def run(*args, env=None, cwd=None):
    result = subprocess.run(
        [str(a) for a in args],
        capture_output=True,
        text=True,
        timeout=600,
        env=env or {"PATH": "/usr/bin:/bin", "HOME": os.environ.get("HOME", "/tmp")},
        cwd=cwd,
    )
    assert result.returncode == 0, f"{args}: {result.stdout}{result.stderr}"
    return result.stdout


def loaded_from(text):
    """The folders of every libcorvantis named in ldd output or a maps file."""
    paths = {os.path.realpath(word) for word in text.split() if "/libcorvantis.so" in word}
    assert paths, text
    return {Path(p).parent for p in paths}


def check_installation(prefix, work):
    assert [p for p in INSTALLED if not (prefix / p).exists()] == []
    corv = prefix / "bin" / "corv"
    libdir = (prefix / "lib").resolve()
    assert loaded_from(run("ldd", corv)) == {libdir}
    assert run(corv, "--version").startswith("corv ")
    run(corv, "convert", SAMPLE, work / "sample16.fla", "--data-type", "2")
    assert "bands:       33" in run(corv, "info", work / "sample16.hdr")
    assert "--screenshot" in run(prefix / "bin" / "tavrel", "--help")
    if (SOURCE_DIR / "python" / "corv" / "batch.py").exists():
        assert "usage:" in run(prefix / "bin" / "corv-batch", "--help")

    python_env = {"PATH": "/usr/bin:/bin", "PYTHONPATH": str(prefix / "lib/python3/dist-packages")}
    script = (
        "import corv\n"
        "print(corv.__file__)\n"
        "print(open('/proc/self/maps').read())\n"
        f"print(corv.hdr_input({str(SAMPLE)!r}).I().shape)\n"
    )
    out = run(PYTHON, "-c", script, env=python_env, cwd=work)
    assert Path(out.splitlines()[0]).resolve().is_relative_to(prefix.resolve())
    assert loaded_from(out) == {libdir}
    assert out.rstrip().endswith("(200, 300, 33)")


def test_install_into_a_prefix(tmp_path):
    prefix = tmp_path / "prefix"
    run("cmake", "--install", BUILD_DIR, "--prefix", prefix)
    check_installation(prefix, tmp_path)

    # The desktop entry is valid and the file types it names are known once registered.
    run("desktop-file-validate", prefix / "share/applications/tavrel.desktop")
    run("update-mime-database", prefix / "share/mime")
    known = (prefix / "share/mime/types").read_text().split()
    entry = (prefix / "share/applications/tavrel.desktop").read_text()
    wanted = entry.split("MimeType=")[1].splitlines()[0].rstrip(";").split(";")
    assert [t for t in wanted if t != "image/tiff" and t not in known] == []

    # A C++ program against the installed CMake package.
    env = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path)}
    build = tmp_path / "consumer"
    run("cmake", "-S", CONSUMER, "-B", build, f"-DCMAKE_PREFIX_PATH={prefix}", env=env)
    run("cmake", "--build", build, env=env)
    assert run(build / "consumer", SAMPLE).splitlines()[-1] == "200 x 300 x 33"


def test_debian_package_unpacked(tmp_path):
    run("cpack", "--config", BUILD_DIR / "CPackConfig.cmake", "-B", tmp_path / "package")
    (package,) = (tmp_path / "package").glob("corvantis_*.deb")
    fields = run("dpkg-deb", "--field", package, "Package", "Depends")
    depends = [d.strip() for d in fields.split("Depends:")[1].split(",")]
    names = {d.split()[0] for d in depends}
    assert {"python3-numpy", "libqt5widgets5", "libgdal32", "libarmadillo11"} <= names, depends
    assert [d for d in depends if "-dev" in d] == []

    root = tmp_path / "root"
    run("dpkg-deb", "-x", package, root)
    prefix = root / "usr"
    check_installation(prefix, tmp_path)

    # The same program, built with pkg-config alone.
    env = {"PATH": "/usr/bin:/bin", "PKG_CONFIG_PATH": str(prefix / "lib/pkgconfig")}
    flags = run("pkg-config", "--cflags", "--libs", "corvantis", env=env).split()
    consumer = tmp_path / "consumer"
    run("g++", "-std=c++17", CONSUMER / "main.cpp", *flags, f"-Wl,-rpath,{prefix}/lib",
        "-o", consumer, env=env)
    assert run(consumer, SAMPLE).splitlines()[-1] == "200 x 300 x 33"
