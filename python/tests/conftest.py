"""A ka-sim for the whole session, on free ports, stopped by its pid at the end."""

from __future__ import annotations

import json
import os
import re
import signal
import socket
import subprocess
import sys
import threading
from typing import Dict, Iterator, List

import pytest

PYTHON_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ROOT = os.path.dirname(PYTHON_DIR)
sys.path.insert(0, PYTHON_DIR)
os.environ.setdefault("KA_API_LIBRARY", os.path.join(ROOT, "build", "default", "libka_api.so"))

ARMS = 4  # 1: moves and queries, 2: faults, 3: CLI, 4: closed connections
START_TIMEOUT_S = 20.0


def simulator_path() -> str:
    path = os.environ.get("KA_SIM", os.path.join(ROOT, "build", "default", "sim", "ka-sim"))
    if not os.access(path, os.X_OK):
        pytest.exit("ka-sim not found at %s; run scripts/test_python.sh" % path, 2)
    return path


class Simulator:
    def __init__(self) -> None:
        self.process = subprocess.Popen(
            [simulator_path(), "--port", "0", "--arms", str(ARMS), "--speed", "8", "--model", "KIVO-B"],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        self.ports: List[int] = []
        self.lines: List[str] = []
        self._ready = threading.Event()
        # Drains the simulator's output for the whole session so its log never blocks it.
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        if not self._ready.wait(START_TIMEOUT_S) or len(self.ports) < ARMS:
            self.stop()
            raise RuntimeError("ka-sim did not start: %s" % "".join(self.lines))

    def _read(self) -> None:
        assert self.process.stdout is not None
        for line in self.process.stdout:
            self.lines.append(line)
            found = re.search(r"arm \d+ listening on [\d.]+:(\d+)", line)
            if found:
                self.ports.append(int(found.group(1)))
                if len(self.ports) == ARMS:
                    self._ready.set()
        self._ready.set()

    def faults(self, arm: int, **settings: object) -> Dict[str, object]:
        """Sends a fault control line to arm ``arm`` (1-based) and returns the settings in force."""
        with socket.create_connection(("127.0.0.1", self.ports[arm - 1]), timeout=5) as connection:
            connection.sendall((json.dumps(dict(sim="faults", **settings)) + "\r\n").encode())
            answer = b""
            while not answer.endswith(b"\r\n"):
                chunk = connection.recv(4096)
                if not chunk:
                    break
                answer += chunk
        return dict(json.loads(answer.decode()))

    def stop(self) -> None:
        if self.process.poll() is None:
            os.kill(self.process.pid, signal.SIGTERM)
            try:
                self.process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                os.kill(self.process.pid, signal.SIGKILL)
                self.process.wait()


@pytest.fixture(scope="session")
def sim(request: pytest.FixtureRequest) -> Iterator[Simulator]:
    simulator = Simulator()
    request.addfinalizer(simulator.stop)
    yield simulator


@pytest.fixture(scope="session")
def arm(sim: Simulator) -> Iterator[object]:
    import ka_api

    with ka_api.Arm("127.0.0.1", sim.ports[0]) as opened:
        yield opened
