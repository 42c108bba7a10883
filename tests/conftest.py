"""What tests of whole programs start from."""
import os
import signal
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
