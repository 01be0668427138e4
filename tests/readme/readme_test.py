#!/usr/bin/env python3
"""Runs README.md as a new user would: every fenced shell block, as written, in a scratch copy.

The copy (under build/, removed afterwards) holds the tracked files and the untracked ones git does
not ignore, and no build tree. Blocks run in order with `bash -euo pipefail` from the copy's root,
HOME in the scratch folder. A fence naming a file after its language (```cpp my_agent/main.cpp) is
written to that path first, so source snippets must compile as shown. The first failing block stops
the run (exit status 1).

    python3 tests/readme/readme_test.py [--keep] [--only N,M]   (N: block numbers it prints)
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

SHELLS = {"sh", "bash", "shell"}
FENCE = re.compile(r"^(`{3,})\s*(\S*)\s*(\S*)\s*$")


def blocks(readme):
    out, lines, i = [], readme.splitlines(), 0
    while i < len(lines):
        m = FENCE.match(lines[i])
        if not m:
            i += 1
            continue
        fence, lang, target = m.groups()
        start, body = i + 1, []
        i += 1
        while i < len(lines) and not lines[i].startswith(fence):
            body.append(lines[i])
            i += 1
        if i == len(lines):
            sys.exit(f"README.md:{start}: fence never closed")
        i += 1
        text = "\n".join(body) + "\n"
        if target:
            out.append(("file", target, text, start))
        elif lang in SHELLS:
            out.append(("sh", None, text, start))
    return out


def copy_checkout(repo, dest):
    listed = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=repo, check=True,
                            capture_output=True).stdout.split(b"\0")
    for rel in filter(None, (p.decode() for p in listed)):
        src = os.path.join(repo, rel)
        if not os.path.lexists(src):
            continue  # deleted in the work tree, not yet in the index
        os.makedirs(os.path.dirname(os.path.join(dest, rel)), exist_ok=True)
        shutil.copy2(src, os.path.join(dest, rel), follow_symlinks=False)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--keep", action="store_true", help="keep the scratch folder")
    ap.add_argument("--only", help="comma-separated shell block numbers to run (files are always written)")
    args = ap.parse_args()

    repo = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    with open(os.path.join(repo, "README.md"), encoding="utf-8") as f:
        found = blocks(f.read())
    shell_blocks = [b for b in found if b[0] == "sh"]
    if not shell_blocks:
        sys.exit("README.md has no shell block: nothing would be tested")
    only = {int(n) for n in args.only.split(",")} if args.only else None

    # Under the checkout's build/, so that ccache with CCACHE_BASEDIR reuses the checkout's compilations.
    os.makedirs(os.path.join(repo, "build"), exist_ok=True)
    scratch = tempfile.mkdtemp(prefix="readme-test-", dir=os.path.join(repo, "build"))
    root = os.path.join(scratch, "IgpCommon")
    home = os.path.join(scratch, "home")
    os.makedirs(home)
    copy_checkout(repo, root)
    env = dict(os.environ, HOME=home)
    env.pop("IGPCOMMON_HASH_SEED", None)
    passed = failed = 0
    try:
        for kind, target, text, line in found:
            if kind == "file":
                path = os.path.join(root, target)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "w", encoding="utf-8") as f:
                    f.write(text)
                print(f"== README.md:{line}: wrote {target}", flush=True)
                continue
            number = shell_blocks.index((kind, target, text, line)) + 1
            if only is not None and number not in only:
                continue
            print(f"== block {number}, README.md:{line}\n{text.rstrip()}", flush=True)
            began = time.monotonic()
            run = subprocess.run(["bash", "-euo", "pipefail", "-c", text], cwd=root, env=env,
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            took = time.monotonic() - began
            if run.returncode != 0:
                failed += 1
                sys.stdout.write(run.stdout.decode(errors="replace")[-6000:])
                print(f"== block {number} (README.md:{line}) FAILED with exit {run.returncode} after {took:.0f}s")
                break
            passed += 1
            print(f"== block {number} ok in {took:.0f}s", flush=True)
    finally:
        if args.keep:
            print(f"scratch copy kept in {root}")
        else:
            shutil.rmtree(scratch, ignore_errors=True)
    print(f"readme: {passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
