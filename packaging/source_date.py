"""When and from which commit this tree was written: what is dated in a package is dated by it, so that the same commit gives
the same bytes on any day.

    packaging/source_date.py       prints the seconds since 1970, for SOURCE_DATE_EPOCH
"""
import os
import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent


def git(*words):
    """What git says of this tree; "" where it is none of git's, or lies in another one."""
    if not (TOP / ".git").exists():
        return ""
    done = subprocess.run(["git", "-C", str(TOP), *words], capture_output=True, text=True, check=False)
    return done.stdout.strip() if done.returncode == 0 else ""


def written_by_archive():
    """`git archive` writes commit and time into packaging/commit.txt; in a clone its placeholders stand there."""
    match = re.search(r"^([0-9a-f]{40}) ([0-9]+)$", (TOP / "packaging/commit.txt").read_text(), re.MULTILINE)
    return match.groups() if match else ("", "")


def newest_file():
    """For a tree without any history: its newest file, but for what was built there."""
    newest = 0.0
    for folder, folders, names in os.walk(TOP):
        if pathlib.Path(folder) == TOP:
            folders[:] = [name for name in folders if name not in ("build", ".git")]
        folders[:] = [name for name in folders if name != "__pycache__"]
        newest = max([newest] + [os.lstat(os.path.join(folder, name)).st_mtime for name in names])
    return int(newest)


def source_date():
    """Seconds since 1970."""
    said = os.environ.get("SOURCE_DATE_EPOCH") or written_by_archive()[1] or git("log", "-1", "--format=%ct")
    return int(said) if said else newest_file()


def source_commit():
    """The commit in words."""
    commit = written_by_archive()[0] or git("rev-parse", "HEAD")
    if not commit:
        return "a tree without a commit"
    return f"commit {commit}" + (", and changes that no commit has" if git("status", "--porcelain") else "")


if __name__ == "__main__":
    sys.stdout.write(f"{source_date()}\n")
