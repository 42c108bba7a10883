#!/usr/bin/env python3
"""The style and the habits of the sources: clang-format, clang-tidy, clazy and qmllint, every finding an error.

    lint.py SOURCE_DIR BUILD_DIR [--format]

A file that clang-tidy and clazy found clean is not looked at again until its text, a header it includes, its
compiler flags or the list of checks change. What is known to be clean is kept, by the hash of all that, in the
user's cache folder, so that a fresh clone knows it too. --format only lets clang-format rewrite the files.

Ends with 0 when all is clean, 1 after a finding, 77 when the tools are not there in the version that decides.
"""
import hashlib
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

LLVM = "19"  # each version of clang-format lays some lines out differently
CLAZY = ("child-event-qobject-cast,connect-3arg-lambda,connect-by-name,connect-non-signal,const-signal-or-slot,"
         "container-anti-pattern,detaching-temporary,fully-qualified-moc-types,incorrect-emit,lambda-in-connect,"
         "lambda-unique-connection,missing-qobject-macro,mutable-container-key,overridden-signal,post-event,"
         "qgetenv,range-loop-detach,range-loop-reference,returning-data-from-temporary,strict-iterators,"
         "temporary-iterator,use-static-qregularexpression,wrong-qglobalstatic,writing-to-temporary")
KEPT_DAYS = 60


def run(command, **options):
    """The exit code and all output, in one text."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                          text=True, errors="replace", **options)
    return done.returncode, done.stdout


def tracked(source, *suffixes):
    """Files of the checkout, new ones included. A clone may belong to somebody else than its user."""
    code, text = run(["git", "-c", "safe.directory=*", "ls-files", "-z", "-c", "-o", "--exclude-standard"], cwd=source)
    if code:  # an unpacked archive
        folders = ("src", "qml", "tests", "tools", "bench")
        text = "\0".join(str(path.relative_to(source)) for folder in folders for path in (source / folder).rglob("*"))
    return [name for name in text.split("\0") if name.endswith(suffixes) and (source / name).is_file()]


def check_format(source, fix):
    files = tracked(source, ".cpp", ".h")
    if fix:
        code, text = run(["clang-format", "-i", *files], cwd=source)
        return [text] if code else []
    text = run(["clang-format", "--dry-run", *files], cwd=source)[1]
    return [f"{place}: not laid out as .clang-format says; the target format does it\n"
            for place in sorted(set(re.findall(r"^(.+?:\d+):\d+: warning: code should be", text, re.M)))]


def check_qml(source, build):
    files = [name for name in tracked(source, ".qml") if name.startswith("qml/")]
    if not files:
        return []
    qmllint = shutil.which(os.environ.get("QMLLINT", "qmllint"))
    if not qmllint:
        return ["qmllint is missing\n"]
    code, text = run([qmllint, "--max-warnings", "0", "-I", str(build / "qml"), *files], cwd=source)
    return [] if code == 0 else [text]


class Sources:
    """What is compiled, with what, and which of it is known to be clean."""

    def __init__(self, source, build):
        self.source, self.build = source, build
        self.cache = Path(os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache") / "vesk-lint"
        self.hashes = {}
        self.included = self.read_includes()
        checks = (source / ".clang-tidy").read_text()
        self.common = "\n".join([checks, CLAZY, run(["clang-tidy", "--version"])[1], run(["clazy", "--version"])[1]])

    def read_includes(self):
        """Object file -> what it was made from, as the last build noted it."""
        includes, current = {}, None
        for line in run(["ninja", "-C", str(self.build), "-t", "deps"])[1].splitlines():
            if line.startswith("    "):
                current.append(line.strip())
            elif ": #deps" in line:
                current = includes.setdefault(line.split(": #deps")[0], [])
        return includes

    def entries(self):
        """Compile commands of our own files, generated ones left out."""
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            path = Path(entry["file"])
            if path.is_relative_to(self.source) and not path.is_relative_to(self.build):
                yield entry

    def describe(self, name):
        """A header's path and text; of a system header, which comes with a package, its size."""
        if name not in self.hashes:
            path = self.build / name
            try:
                ours = path.is_relative_to(self.source)
                what = hashlib.sha256(path.read_bytes()).hexdigest() if ours else str(path.stat().st_size)
                self.hashes[name] = f"{os.path.relpath(path, self.source) if ours else path} {what}"
            except OSError:
                self.hashes[name] = f"{path} is gone"
        return self.hashes[name]

    def mark(self, entry):
        """The file that exists when this entry is known to be clean; None if its headers are not known yet."""
        includes = self.included.get(entry["output"])
        if includes is None:
            return None
        parts = [self.common, entry["command"].replace(str(self.source), "."), self.describe(entry["file"])]
        parts += sorted(self.describe(name) for name in includes)
        return self.cache / hashlib.sha256("\n".join(parts).encode()).hexdigest()

    def forget_old(self):
        oldest = time.time() - KEPT_DAYS * 86400
        for path in self.cache.iterdir():
            if path.stat().st_mtime < oldest:
                path.unlink(missing_ok=True)


def check_source(source, build, path):
    """The findings in one source file and the headers of ours that it includes."""
    headers = f"^{re.escape(str(source))}/(src|tests|tools|bench)/"
    # our flags are g++'s; a signal may be named like a virtual function of QObject
    known = ["-Wno-unknown-warning-option", "-Wno-overloaded-virtual"]
    code, text = run(["clang-tidy", "--quiet", "-p", str(build), f"--header-filter={headers}",
                      *(f"--extra-arg={flag}" for flag in known), path])
    if code == 0 and path.startswith(f"{source}/src/") and shutil.which("clazy-standalone"):
        code, text = run(["clazy-standalone", "-p", str(build), f"-checks={CLAZY}", f"-header-filter={headers}",
                          *(f"--extra-arg={flag}" for flag in [*known, "-Wno-error"]), path])
        code = code or "[-Wclazy" in text
    return [] if code == 0 else [re.sub(r"(?m)^(\d+ warnings? (generated|treated).*|Suppressed .*|Use -header.*)\n", "", text)]


def check_sources(source, build):
    sources = Sources(source, build)
    todo = []
    total = 0
    for entry in sources.entries():
        total += 1
        mark = sources.mark(entry)
        if mark is None or not mark.exists():
            todo.append((entry["file"], mark))
    print(f"clang-tidy: {len(todo)} of {total} files have changed", flush=True)

    def one(item):
        findings = check_source(source, build, item[0])
        if not findings and item[1]:
            item[1].parent.mkdir(parents=True, exist_ok=True)
            item[1].touch()
        return findings

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = [text for texts in pool.map(one, todo) for text in texts]
    if sources.cache.is_dir():
        sources.forget_old()
    return findings


def usable():
    for tool in ("clang-format", "clang-tidy", "ninja", "git"):
        if not shutil.which(tool):
            return f"{tool} is missing"
    for tool in ("clang-format", "clang-tidy"):
        if f"version {LLVM}." not in run([tool, "--version"])[1]:
            return f"{tool} is not of version {LLVM}"
    return ""


def main():
    source, build = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    if reason := usable():
        print(f"lint: skipped, {reason}")
        return 77
    if "--format" in sys.argv:
        findings = check_format(source, True)
    else:
        findings = check_format(source, False) + check_qml(source, build) + check_sources(source, build)
    for text in dict.fromkeys(findings):
        print(text, end="")
    print("lint: clean" if not findings else "lint: see above")
    return 1 if findings else 0


sys.exit(main())
