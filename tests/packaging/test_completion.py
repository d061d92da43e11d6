"""The bash completion of `corv`, run against the built tool."""

import os
import shlex
import subprocess
from pathlib import Path

import pytest

SOURCE_DIR = Path(os.environ.get("CORV_SOURCE_DIR") or Path(__file__).resolve().parents[2])
BUILD_DIR = Path(os.environ.get("CORV_BUILD_DIR") or SOURCE_DIR / "build").resolve()
SCRIPT = SOURCE_DIR / "packaging" / "corv.bash-completion"
BASH_COMPLETION = Path("/usr/share/bash-completion/bash_completion")


def complete(line, cwd):
    """The completions bash offers at the end of LINE."""
    words = shlex.split(line) + ([""] if line.endswith(" ") else [])
    program = f"""
        source {BASH_COMPLETION}
        source {SCRIPT}
        COMP_LINE={shlex.quote(line)}
        COMP_POINT=${{#COMP_LINE}}
        COMP_WORDS=({" ".join(shlex.quote(w) for w in words)})
        COMP_CWORD={len(words) - 1}
        _corv {BUILD_DIR / "bin" / "corv"} {shlex.quote(words[-1])} {shlex.quote(words[-2])}
        printf '%s\\n' "${{COMPREPLY[@]}}"
    """
    result = subprocess.run(
        ["bash", "--norc", "-c", program], capture_output=True, text=True, cwd=cwd, timeout=60
    )
    assert result.returncode == 0, result.stderr
    return sorted(word for word in result.stdout.splitlines() if word)


def test_commands_options_and_values_come_from_the_help(tmp_path):
    if not BASH_COMPLETION.is_file():
        pytest.skip("bash-completion is not installed")
    (tmp_path / "image.hdr").write_text("ENVI\n")
    (tmp_path / "notes").mkdir()
    cases = [
        ("corv p", ["pca", "prepare", "process"]),
        ("corv -v li", ["library"]),
        ("corv help cl", ["classify"]),
        ("corv library ", ["from-csv", "from-sli", "info", "merge", "to-csv"]),
        ("corv classify image.hdr --me", ["--method"]),
        ("corv classify image.hdr --method ", ["sam", "svm", "unmix"]),
        ("corv convert image.hdr out.fla --data-type ", ["1", "12", "2", "4"]),
        ("corv process image.hdr --illuminant gray-", ["gray-edge", "gray-world"]),
        ("corv process image.hdr --set nurbs_d", ["nurbs_degree="]),
        ("corv process image.hdr -o ", ["image.hdr", "notes"]),
        ("corv pca image.hdr -n ", []),
        ("corv info im", ["image.hdr"]),
        # After "--" every word is a file name, even one that looks like an option.
        ("corv bandmath -- --re", []),
    ]
    for line, expected in cases:
        assert complete(line, tmp_path) == expected, line
