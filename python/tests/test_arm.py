"""The Pythonic layer end to end against ka-sim: conversions, exceptions, motion, push."""

from __future__ import annotations

import math

import pytest

import ka_api
from ka_api import kinematics
from ka_api.errors import error_for


def test_queries_return_tuples_in_degrees_metres_and_radians(arm: ka_api.Arm) -> None:
    target = (12.345, -20.5, 45.25, 5.0, 30.125, -7.5)
    arm.movej(target, speed=60, block=True)
    joints = arm.joints()
    assert isinstance(joints, tuple) and len(joints) == arm.dof == 6
    # The wire carries millidegrees, truncated: 12.345 may read back as 12.344.
    assert joints == pytest.approx(target, abs=2e-3)
    state = arm.state()
    assert state.joints == pytest.approx(target, abs=2e-3)
    # The arm's pose is the kinematics' pose of its joints, in metres and radians.
    expected = kinematics.forward("KIVO", joints)
    assert state.pose.isclose(expected, position_tol=2e-6, angle_tol=2e-3)
    assert 0.1 < math.dist(list(state.pose)[:3], (0, 0, 0)) < 2.0
    assert arm.pose().isclose(state.pose)


def test_linear_move_by_centimetres(arm: ka_api.Arm) -> None:
    arm.movej((0, 30, 60, 0, 60, 0), speed=60)
    start = arm.pose()
    arm.movel(start.offset(dz=-0.05), speed=50)
    reached = arm.pose()
    assert reached.z == pytest.approx(start.z - 0.05, abs=1e-5)
    assert (reached.x, reached.y) == pytest.approx((start.x, start.y), abs=1e-5)
    assert reached.isclose(start.offset(dz=-0.05), position_tol=1e-5)
    # A plain sequence is accepted wherever a pose is.
    arm.movej_p(list(start), speed=60)
    assert arm.pose().isclose(start, position_tol=1e-4)


def test_non_blocking_move_is_seen_running_in_the_push_and_stops(arm: ka_api.Arm) -> None:
    arm.movej((0, 30, 60, 0, 60, 0), speed=60)
    arm.start_push()
    with arm.states(timeout=3.0) as states:
        arm.movej((60, 30, 60, 0, 60, 0), speed=5, block=False)
        running = next(s for s in states if s.status_name == "move_J")
        assert running.ok and len(running.joints) == 6
        arm.stop()
        stopped = next(s for s in states if s.status_name in ("idle", "stop"))
        assert stopped.joints[0] < 60.0
    assert arm.joints()[0] == pytest.approx(stopped.joints[0], abs=0.5)


def test_streamed_joint_targets_are_followed(arm: ka_api.Arm) -> None:
    arm.movej((0, 30, 60, 0, 60, 0), speed=60)
    arm.start_push()
    target = (2.0, 30.0, 60.0, 0.0, 60.0, 0.0)
    with arm.states(timeout=3.0) as states:
        for i in range(1, 21):
            arm.movej_canfd((0.1 * i, 30, 60, 0, 60, 0))
        reached = next(s for s in states if abs(s.joints[0] - 2.0) < 1e-3)
    assert reached.joints == pytest.approx(target, abs=1e-3)


def test_push_callback_and_iterator_see_the_same_arm(arm: ka_api.Arm) -> None:
    arm.start_push()
    seen = []
    unregister = arm.on_state(seen.append)
    try:
        with arm.states(timeout=3.0) as states:
            first = [next(states) for _ in range(5)]
    finally:
        unregister()
    assert all(s.ok and s.arm_ip == "127.0.0.1" for s in first)
    assert len(seen) >= 5
    assert first[-1].joints == pytest.approx(arm.joints(), abs=1e-2)


def test_refused_command_raises_refused_with_code_and_log(arm: ka_api.Arm) -> None:
    arm.set_io_mode(2, output=False)
    with pytest.raises(ka_api.Refused) as caught:
        arm.set_digital_output(2, True)  # an input cannot be driven
    assert caught.value.code == 1 and caught.value.function == "ka_set_DO_state"
    assert "ka_set_DO_state" in (caught.value.log_line or "")
    arm.set_io_mode(2, output=True)
    arm.set_digital_output(2, True)
    assert arm.digital_outputs()[1] == 1


# A garbled line names no command, so the library keeps waiting for the reply: -2 as well.
@pytest.mark.parametrize("fault", [{"drop": 1}, {"garbage": 1}])
def test_lost_or_garbled_reply_is_a_timeout_carrying_the_log_line(sim: object, fault: dict) -> None:
    with ka_api.Arm("127.0.0.1", sim.ports[1]) as faulty:  # type: ignore[attr-defined]
        assert faulty.joints()
        sim.faults(2, clear=True, **fault)  # type: ignore[attr-defined]
        with pytest.raises(ka_api.Timeout) as caught:
            faulty.joints()
        assert (caught.value.code, caught.value.function) == (-2, "ka_get_joint_degree")
        assert "[ka_get_joint_degree]" in (caught.value.log_line or "")
        assert "revice error" in (caught.value.log_line or "")
        assert faulty.joints()  # the next reply arrives again


def test_closed_connection_raises_disconnected(sim: object) -> None:
    with ka_api.Arm("127.0.0.1", sim.ports[3]) as arm:  # type: ignore[attr-defined]
        assert arm.joints()
        sim.faults(4, close=True)  # type: ignore[attr-defined]
        # Until the receive thread has seen the end, a call may still wait out its time-out.
        outcomes = []
        for _ in range(4):
            try:
                arm.joints()
                outcomes.append("ok")
            except ka_api.Timeout:
                outcomes.append("timeout")
            except ka_api.LocalError as error:
                outcomes.append(error)
                break
        assert isinstance(outcomes[-1], ka_api.LocalError), outcomes
        assert outcomes[-1].code == -1


def test_context_manager_closes_and_frees_the_slot(sim: object) -> None:
    port = sim.ports[2]  # type: ignore[attr-defined]
    # More than the library's five slots, one after another: each exit frees its slot.
    for _ in range(ka_api.lowlevel.KA_MAX_ARMS + 2):
        with ka_api.Arm("127.0.0.1", port) as arm:
            handle = arm.handle
            assert handle.contents.id >= 1
    assert arm.closed and handle.contents.id == 0
    with pytest.raises(ka_api.Disconnected) as caught:
        arm.joints()
    assert caught.value.code == -1


def test_unreachable_arm_raises_and_keeps_no_slot() -> None:
    for _ in range(ka_api.lowlevel.KA_MAX_ARMS + 1):
        with pytest.raises(ka_api.Disconnected) as caught:
            ka_api.Arm("127.0.0.1", 1)
        assert caught.value.function == "ka_create_robot_arm"


@pytest.mark.parametrize(
    "code, kind",
    [(1, ka_api.Refused), (3, ka_api.Refused), (-1, ka_api.LocalError), (-2, ka_api.Timeout),
     (-3, ka_api.ParseError), (-4, ka_api.FamilyError), (-6, ka_api.FamilyError)],
)  # fmt: skip
def test_codes_map_to_exception_classes(code: int, kind: type) -> None:
    error = error_for(code, "ka_f", "[ka_f] something")
    assert type(error) is kind and isinstance(error, ka_api.KaError)
    assert (error.code, error.function, error.log_line) == (code, "ka_f", "[ka_f] something")
    assert isinstance(error_for(-1, "ka_f", "[ka_f] The robotic arm has been disconnected"), ka_api.Disconnected)


@pytest.mark.parametrize("model, joints", [("KIVO", (10, 20, 30, 40, 50, 60)), ("LUNE-B", (10, 20, 30, 40, 50, 60, 10))])
def test_inverse_of_forward_returns_the_joints(model: str, joints: tuple) -> None:
    pose = kinematics.forward(model, joints)
    solved = kinematics.inverse(model, pose, [j + 2 for j in joints])
    assert len(solved) == len(joints)
    assert kinematics.forward(model, solved).isclose(pose, position_tol=1e-4, angle_tol=1e-3)


def test_kinematics_helpers_round_trip() -> None:
    q = kinematics.euler_to_quaternion(0.1, -0.2, 0.3)
    assert sum(c * c for c in q) == pytest.approx(1.0, abs=1e-6)
    assert kinematics.quaternion_to_euler(*q) == pytest.approx((0.1, -0.2, 0.3), abs=1e-5)
    pose = ka_api.Pose(0.1, 0.2, 0.3, 0.1, -0.2, 0.3)
    matrix = kinematics.pose_to_matrix(pose)
    assert matrix[0][3] == pytest.approx(0.1) and matrix[3] == pytest.approx((0, 0, 0, 1))
    assert kinematics.matrix_to_pose(matrix).isclose(pose, position_tol=1e-6, angle_tol=1e-5)
    with pytest.raises(ValueError):
        kinematics.forward("NOSUCH", (0,) * 6)


def test_numpy_arrays_are_taken_where_sequences_are(arm: ka_api.Arm) -> None:
    np = pytest.importorskip("numpy")
    joints = np.array([10.0, 20.0, 30.0, 40.0, 50.0, 60.0])
    pose = kinematics.forward("KIVO", joints)
    assert pose.isclose(kinematics.forward("KIVO", tuple(joints.tolist())), position_tol=0, angle_tol=0)
    solved = kinematics.inverse("KIVO", np.array(pose), joints + 2)
    assert solved == pytest.approx(tuple(joints.tolist()), abs=1e-2)
    arm.movej(np.array([0.0, 30.0, 60.0, 0.0, 60.0, 0.0]), speed=60)
    assert arm.joints()[:6] == pytest.approx((0, 30, 60, 0, 60, 0), abs=1e-2)
