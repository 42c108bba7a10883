"""Each folder of src sees itself and the layers below: what an include of a layer above would need does not compile."""
import json
import shlex
import subprocess
import sys
from pathlib import Path

source, build = Path(sys.argv[1]), Path(sys.argv[2])

# From the bottom up; a folder sees the folders named behind it, and what those see.
SEES = {
    "platform": [],
    "core": ["platform"],
    "providers": ["core"],
    "tools": ["core"],
    "workers/background": ["core"],
    "workers/media": ["core"],
    "engine": ["providers", "tools"],
    "backend": ["engine", "workers/background"],
    "app": ["engine", "workers/background"],
    "window": ["backend", "app"],
}


def seen_from(folder):
    return {folder}.union(*(seen_from(below) for below in SEES[folder]))


def headers_of(folder):
    return sorted((source / "src" / folder).glob("*.h"))


def commands():
    """How the compiler is called for the sources of each folder."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        folder = entry["output"].split("/CMakeFiles/")[0]
        if folder.startswith("src/"):
            found.setdefault(folder.removeprefix("src/"), shlex.split(entry["command"]))
    return found


def compiles(command, header):
    """Whether a file with the flags of this command can include the header. Only our own includes are followed."""
    options = [word for word in command if word.startswith(("-I", "-std"))]
    done = subprocess.run([command[0] if "ccache" not in command[0] else "c++", "-E", "-x", "c++", *options, "-"],
                          input=f"#if !__has_include(\"{header}\")\n#error unseen\n#endif\n", text=True, capture_output=True)
    return done.returncode == 0


def main():
    wrong = []
    known = {str(path.parent.relative_to(source / "src")) for path in (source / "src").rglob("*.h")}
    wrong += [f"{folder} stands in no layer" for folder in known - set(SEES) - {"platform/guard"}]
    compiler = commands()
    for folder in SEES:
        command = [word for word in compiler[folder] if not word.startswith("CCACHE")]
        command = command[next(at for at, word in enumerate(command) if word.endswith(("c++", "g++", "clang++"))):]
        below = seen_from(folder)
        for other in SEES:
            for header in headers_of(other)[:1]:
                if compiles(command, header.name) != (other in below):
                    wrong.append(f"src/{folder} {'does not see' if other in below else 'sees'} {header.name} of src/{other}")
    for path in [*(source / "src").rglob("*.cpp"), *(source / "src").rglob("*.h")]:
        if '#include "../' in path.read_text() or '#include "/' in path.read_text():
            wrong.append(f"{path.relative_to(source)} goes round its include folders")
    print("\n".join(wrong) or f"{len(SEES)} layers see what they may and nothing else")
    return bool(wrong)


sys.exit(main())
