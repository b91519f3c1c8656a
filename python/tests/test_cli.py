"""The ka command through subprocess: output, JSON and exit codes."""

from __future__ import annotations

import json
import os
import subprocess
import sys
from typing import List

import pytest

from conftest import PYTHON_DIR

SUBCOMMANDS = ["info", "joints", "pose", "errors", "watch", "move-joints", "move-line", "stop", "io", "sim"]


def ka(*args: str, host: str = "", timeout: float = 60) -> subprocess.CompletedProcess:
    env = dict(os.environ, PYTHONPATH=PYTHON_DIR)
    if host:
        env["KA_HOST"] = host
    return subprocess.run(
        [sys.executable, "-m", "ka_api", *args], env=env, capture_output=True, text=True, timeout=timeout
    )


@pytest.fixture(scope="module")
def host(sim: object) -> str:
    return "127.0.0.1:%d" % sim.ports[2]  # type: ignore[attr-defined]


@pytest.mark.parametrize("command", SUBCOMMANDS)
def test_every_subcommand_has_help(command: str) -> None:
    result = ka(command, "--help") if command != "sim" else ka("sim", "--help")
    assert result.returncode == 0, result.stderr
    assert "usage: ka " + command in result.stdout


def test_info_by_positional_address_and_json(host: str) -> None:
    text = ka("info", host)
    assert text.returncode == 0, text.stderr
    assert "KIVO-B, 6 joints" in text.stdout
    data = json.loads(ka("info", "--json", host=host).stdout)
    assert (data["product"], data["dof"], data["port"]) == ("KIVO-B", 6, int(host.split(":")[1]))


def test_move_joints_then_joints_pose_and_errors(host: str) -> None:
    moved = ka("move-joints", "5", "30", "60", "0", "60", "-5.5", "--speed", "60", "--json", host=host)
    assert moved.returncode == 0, moved.stderr
    assert json.loads(moved.stdout) == pytest.approx([5, 30, 60, 0, 60, -5.5], abs=2e-3)
    joints = ka("joints", "--host", host)
    assert [float(v) for v in joints.stdout.split()] == pytest.approx([5, 30, 60, 0, 60, -5.5], abs=2e-3)
    pose = json.loads(ka("pose", "--json", host=host).stdout)
    assert set(pose) == {"x", "y", "z", "rx", "ry", "rz"} and 0.1 < pose["z"] < 1.5
    line = ka("move-line", *map(str, [pose["x"], pose["y"], pose["z"] - 0.02, pose["rx"], pose["ry"], pose["rz"]]),
              "--json", host=host)  # fmt: skip
    assert line.returncode == 0, line.stderr
    assert json.loads(line.stdout)["z"] == pytest.approx(pose["z"] - 0.02, abs=1e-5)
    errors = ka("errors", "--clear", "--json", host=host)
    assert errors.returncode == 0, errors.stderr
    assert json.loads(errors.stdout) == {"arm_err": 0, "sys_err": 0, "joint_errors": [0] * 6}
    assert ka("stop", host=host).stdout.strip() == "stopped"


def test_io_set_and_read_back(host: str) -> None:
    result = ka("io", "set", "3", "1", "--json", host=host)
    assert result.returncode == 0, result.stderr
    assert json.loads(result.stdout)["outputs"][2] == 1
    result = ka("io", "set", "3", "0", "--json", host=host)
    assert json.loads(result.stdout)["outputs"][2] == 0


def test_watch_ends_after_count(host: str) -> None:
    result = ka("watch", "--count", "5", "--json", host=host)
    assert result.returncode == 0, result.stderr
    states: List[dict] = [json.loads(line) for line in result.stdout.splitlines()]
    assert len(states) == 5 and all(len(s["joints"]) == 6 for s in states)
    text = ka("watch", "--count", "3", host=host)
    assert text.returncode == 0 and "push" in text.stdout and "Hz" in text.stdout


@pytest.mark.parametrize(
    "args",
    [("joints", "--host", "127.0.0.1:1"), ("info", "127.0.0.1:1"), ("move-joints", "1", "2", "--host", "127.0.0.1:1")],
)
def test_failures_exit_1_with_the_library_message(args: tuple) -> None:
    result = ka(*args)
    assert result.returncode == 1
    assert result.stderr.startswith("ka: ka_create_robot_arm returned -1")
    assert "connect" in result.stderr


def test_refused_command_exits_1(host: str) -> None:
    # Seven joints on a six-joint arm: the library sends six, so use an unreachable target instead.
    result = ka("move-joints", "0", "300", "0", "0", "0", "0", host=host)
    assert result.returncode == 1
    assert "ka_movej returned" in result.stderr


def test_sim_passes_options_through_and_its_exit_status_back() -> None:
    from conftest import simulator_path

    env = dict(os.environ, PYTHONPATH=PYTHON_DIR, KA_SIM=simulator_path())
    # An unknown model is refused at start, so the simulator ends by itself.
    result = subprocess.run([sys.executable, "-m", "ka_api", "sim", "--port", "0", "--model", "NOSUCH-B"],
                            env=env, capture_output=True, text=True, timeout=30)  # fmt: skip
    assert result.returncode != 0
    assert "NOSUCH" in result.stdout + result.stderr
