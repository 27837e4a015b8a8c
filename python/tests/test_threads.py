"""How many threads work: argument, then VELACAMPLIX_NUM_THREADS, then OMP_NUM_THREADS, then what the process may use."""

import os

import pytest
from test_memory import MOUNTS_V1, MOUNTS_V2, lay_out

from velacamplix import StateVector, _machine


@pytest.fixture(autouse=True)
def no_variables(monkeypatch):
    monkeypatch.delenv("VELACAMPLIX_NUM_THREADS", raising=False)
    monkeypatch.delenv("OMP_NUM_THREADS", raising=False)


def test_the_argument_comes_first(monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", "3")
    assert StateVector(1, threads=2).threads == 2


def test_then_our_variable(monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", " 3 ")
    monkeypatch.setenv("OMP_NUM_THREADS", "4")
    assert StateVector(1).threads == 3


@pytest.mark.parametrize(("value", "threads"), [("4", 4), ("5,2", 5), (" 6 , 1", 6)])
def test_then_the_variable_of_openmp(value, threads, monkeypatch):
    monkeypatch.setenv("OMP_NUM_THREADS", value)
    assert StateVector(1).threads == threads


@pytest.mark.parametrize("value", ["", "many", "0", "-2"])
def test_a_variable_of_openmp_that_says_nothing_is_passed_over(value, monkeypatch):
    monkeypatch.setenv("OMP_NUM_THREADS", value)
    assert StateVector(1).threads == _machine.processors()


def test_then_the_processors_this_process_may_use():
    assert StateVector(1).threads == _machine.processors() <= len(os.sched_getaffinity(0))


def test_setting_none_later_means_the_default_again():
    state = StateVector(1, threads=1)
    state.threads = None
    assert state.threads == _machine.processors()


@pytest.mark.parametrize("value", ["many", "0", "-1", "2.0", "1000000", "²"])
def test_our_variable_with_a_bad_value(value, monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_NUM_THREADS", value)
    with pytest.raises(ValueError) as error:
        StateVector(1)
    assert "VELACAMPLIX_NUM_THREADS" in str(error.value) and repr(value) in str(error.value)
    assert "whole number from 1 to" in str(error.value)
    assert StateVector(1, threads=1).threads == 1


@pytest.mark.skipif(len(os.sched_getaffinity(0)) < 2, reason="needs two processors to take one away")
def test_affinity():
    allowed = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(allowed)})
    try:
        assert StateVector(1).threads == 1
    finally:
        os.sched_setaffinity(0, allowed)


@pytest.mark.parametrize(("quota", "processors"), [("100000 100000", 1), ("50000 100000", 1), ("max 100000", None)])
def test_quota_of_a_version_2_group(quota, processors, tmp_path):
    lay_out(tmp_path, proc__self__mountinfo=MOUNTS_V2, proc__self__cgroup="0::/job\n")
    lay_out(tmp_path / "sys/fs/cgroup/job", **{"cpu.max": quota + "\n"})
    assert _machine.processors(tmp_path) == (processors or len(os.sched_getaffinity(0)))


@pytest.mark.parametrize(("quota", "processors"), [("150000", 1), ("-1", None)])
def test_quota_of_a_version_1_group(quota, processors, tmp_path):
    lay_out(tmp_path, proc__self__mountinfo=MOUNTS_V1, proc__self__cgroup="3:cpu,cpuacct:/\n")
    lay_out(tmp_path / "sys/fs/cgroup/cpu,cpuacct", **{"cpu.cfs_quota_us": quota, "cpu.cfs_period_us": "100000\n"})
    assert _machine.processors(tmp_path) == (processors or len(os.sched_getaffinity(0)))
