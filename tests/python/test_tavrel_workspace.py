"""tavrel --save-workspace and --screenshot of a workspace, read back with Python's zipfile."""

import os
import struct
import subprocess
import zipfile

import pytest

from corv_testing import CORV_BIN, SAMPLE_HEADER

TAVREL = CORV_BIN.parent / "tavrel"
pytestmark = pytest.mark.skipif(not TAVREL.exists(), reason=f"the viewer is not built: {TAVREL}")


def tavrel(*args, cwd):
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", XDG_RUNTIME_DIR=str(cwd))
    return subprocess.run([str(TAVREL), *map(str, args)], cwd=cwd, env=env, capture_output=True,
                          text=True, timeout=120, stdin=subprocess.DEVNULL)


@pytest.mark.parametrize("portable", [False, True])
def test_saved_workspace_is_a_zip_of_the_documented_members(tmp_path, portable):
    out = tmp_path / "w.tvw"
    done = tavrel("--save-workspace", out, *(["--portable"] if portable else []), SAMPLE_HEADER,
                  cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    with zipfile.ZipFile(out) as archive:
        infos = archive.infolist()
        names = [info.filename for info in infos]
        assert names == ["tavrel.dat", "library.slz"] + (
            ["sample.fla", "sample.hdr"] if portable else [])
        assert all(info.comment == b"no comment" for info in infos)
        assert all(info.compress_type == zipfile.ZIP_DEFLATED for info in infos)
        record = archive.read("tavrel.dat")
        if portable:
            assert archive.read("sample.fla") == SAMPLE_HEADER.with_suffix(".fla").read_bytes()
    magic, version, count = struct.unpack(">Iii", record[:12])
    assert (magic, version, count) == (0xA0B0C0D0, 1000, 1)
    length = struct.unpack(">I", record[12:16])[0]
    entry = record[16:16 + length].decode("utf-16-be")
    assert entry == ("sample.hdr" if portable else str(SAMPLE_HEADER.resolve()))

    shot = tmp_path / "shot.png"
    done = tavrel("--screenshot", shot, out, cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    assert shot.stat().st_size > 0


def test_failures_exit_1_with_the_message(tmp_path):
    done = tavrel("--save-workspace", tmp_path / "w.tvw", tmp_path / "none.hdr", cwd=tmp_path)
    assert done.returncode == 1
    assert "Could not open image file" in done.stderr
    assert not (tmp_path / "w.tvw").exists()

    bad = tmp_path / "bad.tvw"
    bad.write_bytes(b"not an archive")
    done = tavrel("--screenshot", tmp_path / "shot.png", bad, cwd=tmp_path)
    assert done.returncode == 1
    assert "Could not open workspace" in done.stderr
    assert not (tmp_path / "shot.png").exists()
