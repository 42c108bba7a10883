"""What tests of whole programs start from."""
import os
import signal
import subprocess
import tempfile
import threading
from pathlib import Path

import pytest

from model import Model
from program import Vesk


@pytest.fixture
def folder():
    """Short enough for the sockets that some programs make in it."""
    with tempfile.TemporaryDirectory(prefix="vesk-") as name:
        yield Path(name)


@pytest.fixture
def vesk(folder):
    vesk = Vesk(folder)
    yield vesk
    left = vesk.alive()
    for process in left:
        os.kill(process, signal.SIGKILL)
    assert not left, "programs outlived the test"


@pytest.fixture
def model():
    with Model() as server:
        thread = threading.Thread(target=server.serve_forever, args=(0.05,))
        thread.start()
        yield server
        server.shutdown()
        thread.join()


@pytest.fixture
def own_mounts():
    """Mounts that nobody else sees and that end with this process; gives a function that makes one."""
    try:
        os.unshare(os.CLONE_NEWNS)
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)
    except (AttributeError, OSError, subprocess.CalledProcessError):
        pytest.skip("mounts need root")
    made = []

    def mount(target, *arguments):
        target.mkdir(exist_ok=True)
        subprocess.run(["mount", *arguments, target], check=True)
        made.append(target)

    yield mount
    for target in reversed(made):
        subprocess.run(["umount", "-l", target], check=True)
