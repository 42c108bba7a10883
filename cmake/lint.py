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
         "container-anti-pattern,fully-qualified-moc-types,incorrect-emit,lambda-in-connect,"
         "lambda-unique-connection,missing-qobject-macro,mutable-container-key,overridden-signal,post-event,"
         "qgetenv,range-loop-reference,returning-data-from-temporary,strict-iterators,"
         "temporary-iterator,use-static-qregularexpression,wrong-qglobalstatic,writing-to-temporary")
# Which headers a file includes. Qt's own ones forward to others, as do some of the standard library.
INCLUDES = """{Checks: '-*,misc-include-cleaner', WarningsAsErrors: '*',
               CheckOptions: {misc-include-cleaner.IgnoreHeaders: '/Qt[A-Za-z]*/q.*\\.h;bits/.*'}}"""
INCLUDES_OF = ("src/core",)  # two to seven seconds for each file
BATCH = 24  # files looked at as one text
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
        self.direct = {}
        self.entries = [entry for compiled in json.loads((build / "compile_commands.json").read_text())
                        for entry in self.single(compiled) if self.is_ours(Path(entry["file"]))]
        self.common = "\n".join([Path(__file__).read_text(), (source / ".clang-tidy").read_text(),
                                 run(["clang-tidy", "--version"])[1], run(["clazy-standalone", "--version"])[1],
                                 os.environ.get("VESK_TOOLCHAIN", "")])

    def is_ours(self, path):
        """Not so what moc and rcc have made."""
        return path.is_relative_to(self.source) and not path.is_relative_to(self.build)

    @staticmethod
    def single(entry):
        """The files that the build compiles as one, each with the same flags."""
        path = Path(entry["file"])
        if path.parent.name != "Unity" or not path.exists():
            return [entry]
        return [{**entry, "file": name} for name in re.findall(r'(?m)^#include "(.+)"', path.read_text())]

    def includes_of(self, path, folders):
        """The headers of ours that stand in a file."""
        if path not in self.direct:
            names = re.findall(r'(?m)^#include "(.+)"', path.read_text()) if path.is_file() else []
            places = [next((folder / name for folder in [path.parent, *folders] if (folder / name).is_file()), None)
                      for name in names]
            self.direct[path] = [place.resolve() for place in places if place and self.is_ours(place.resolve())]
        return self.direct[path]

    def made_from(self, entry):
        """The file and all headers of ours that it includes, directly or through others."""
        folders = [Path(word[2:]) for word in shlex.split(entry["command"]) if word.startswith("-I")]
        seen, waiting = set(), [Path(entry["file"])]
        while waiting:
            path = waiting.pop()
            if path not in seen:
                seen.add(path)
                waiting += self.includes_of(path, folders)
        return seen

    def describe(self, path):
        if path not in self.hashes:
            self.hashes[path] = f"{path.relative_to(self.source)} {hashlib.sha256(path.read_bytes()).hexdigest()}"
        return self.hashes[path]

    def mark(self, entry, check):
        """The file that exists when this entry is known to be clean."""
        flags = entry["command"].split(" -o ")[0].replace(str(self.source), ".")
        parts = [check, self.common, flags, *sorted(map(self.describe, self.made_from(entry)))]
        return self.cache / hashlib.sha256("\n".join(parts).encode()).hexdigest()

    def is_clean(self, entry, check="all"):
        return self.mark(entry, check).exists()

    def note_clean(self, entries, check="all"):
        self.cache.mkdir(parents=True, exist_ok=True)
        for entry in entries:
            self.mark(entry, check).touch()

    def forget_old(self):
        oldest = time.time() - KEPT_DAYS * 86400
        for path in self.cache.iterdir() if self.cache.is_dir() else []:
            if path.stat().st_mtime < oldest:
                path.unlink(missing_ok=True)

    def batches(self):
        """What is not known to be clean, src apart from the rest, many files at a time."""
        groups = {}
        for entry in self.entries:
            if not self.is_clean(entry):
                top = Path(entry["file"]).relative_to(self.source).parts[0]
                groups.setdefault(top, []).append(entry)
        return [group[at:at + BATCH] for group in groups.values() for at in range(0, len(group), BATCH)]


def flags(entries):
    """The compiler's flags for all of the entries together: macros and folders of each, the rest of the first."""
    result, macros = [], set()
    for index, entry in enumerate(entries):
        words = iter(shlex.split(entry["command"])[1:])
        for word in words:
            # without the precompiled headers: a file includes what it uses
            if word in ("-o", "-c", "-MT", "-MF", "-include"):
                next(words)
            elif word in ("-MD", "-Winvalid-pch", "-fpch-preprocess"):
                pass
            elif word == "-isystem":
                folder = next(words)
                result += [] if folder in result else [word, folder]
            elif word.startswith("-D"):
                name = word.split("=")[0]
                result += [] if name in macros else [word]
                macros.add(name)
            elif word not in result and (index == 0 or word.startswith("-I")):
                result.append(word)
    # our warnings are g++'s; a signal may be named like a virtual function of QObject
    return [*result, "-Wno-unknown-warning-option", "-Wno-overloaded-virtual"]


def one_text(entries, build):
    """A source file that holds the given ones. Each may have a main of its own."""
    lines = [f"#define main main_{n}\n#include \"{entry['file']}\"\n#undef main" for n, entry in enumerate(entries)]
    text = "\n".join(lines) + "\n"
    path = build / "lint" / f"{hashlib.sha256(text.encode()).hexdigest()[:12]}.cpp"
    path.parent.mkdir(exist_ok=True)
    path.write_text(text)
    return str(path)


def look_at(path, options, source):
    """What clang-tidy and clazy say of one source file and the headers of ours that it includes."""
    headers = f"^{re.escape(str(source))}/(src|tests|tools|bench)/"
    code, text = run(["clang-tidy", "--quiet", f"--config-file={source}/.clang-tidy", f"--header-filter={headers}",
                      path, "--", *options])
    if code == 0 and shutil.which("clazy-standalone"):
        code, text = run(["clazy-standalone", f"-checks={CLAZY}", f"-header-filter={headers}", path, "--",
                          *options, "-Wno-error"])
        code = code or "[-Wclazy" in text
    return text if code else ""


def apart(entries, text):
    """The entries in two parts, of which the second has what the compiler stumbled over in the text."""
    stumbled = set(re.findall(r"(?m)^(/[^:]+):\d+:\d+: error: .*\[clang-diagnostic-", text))
    second = [entry for entry in entries if entry["file"] in stumbled]
    if not second or len(second) == len(entries):
        second = entries[len(entries) // 2:]
    return [entry for entry in entries if entry not in second], second


def check_batch(sources, entries):
    """Qt's headers cost two to three seconds each time they are read, and our text next to nothing: so a batch is
    looked at as one. What the compiler says there may only come of the files being together (two helpers of one
    name): then those that have it are looked at apart, down to the single file."""
    path = entries[0]["file"] if len(entries) == 1 else one_text(entries, sources.build)
    text = look_at(path, flags(entries), sources.source)
    if not text:
        sources.note_clean(entries)
        return []
    if len(entries) > 1 and "[clang-diagnostic-" in text:
        return [finding for part in apart(entries, text) for finding in check_batch(sources, part)]
    findings = re.split(r"(?m)^(?=/.*: (?:warning|error): )", text)
    return findings[1:] or findings


def check_includes(sources, entry):
    """This check sees one file alone and nothing that it includes, so there are no batches of it."""
    code, text = run(["clang-tidy", "--quiet", f"--config={INCLUDES}", entry["file"], "--", *flags([entry])])
    if code == 0:
        sources.note_clean([entry], "includes")
    return [] if code == 0 else re.split(r"(?m)^(?=/.*: (?:warning|error): )", text)[1:] or [text]


def check_sources(source, build):
    sources = Sources(source, build)
    batches = sources.batches()
    own = [entry for entry in sources.entries
           if any(Path(entry["file"]).is_relative_to(source / folder) for folder in INCLUDES_OF)
           and not sources.is_clean(entry, "includes")]
    print(f"clang-tidy: {sum(map(len, batches))} of {len(sources.entries)} files to look at, "
          f"and the includes of {len(own)}", flush=True)
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = [*pool.map(lambda batch: check_batch(sources, batch), batches),
                   *pool.map(lambda entry: check_includes(sources, entry), own)]
    sources.forget_old()
    return [text for texts in results for text in texts]


def usable():
    for tool in ("clang-format", "clang-tidy", "git"):
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
