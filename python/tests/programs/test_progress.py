"""Runs can be watched and stopped: functions in this process, bars and Ctrl-C in a process of their own."""

import importlib.util
import io
import os
import signal
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest

from velacamplix import Circuit, Progress, StateVector, run
from velacamplix.programs import drive as _drive
from velacamplix.programs import progress as _progress


def layers(n, count, n_clbits=0):
    circuit = Circuit(n, n_clbits)
    for _ in range(count):
        for qubit in range(n):
            circuit.h(qubit)
        for qubit in range(n - 1):
            circuit.cx(qubit, qubit + 1)
    return circuit


# Functions


@pytest.mark.parametrize("call", [run, StateVector(20).run])
def test_a_function_hears_how_far_the_run_is(call):
    told = []
    call(layers(20, 12), progress=told.append)
    assert all(type(progress) is Progress for progress in told)
    assert told[-1].done == told[-1].total == 12 * 39 and told[-1].remaining == 0
    for before, after in zip(told, told[1:]):
        # On a slow machine a pass, or planning before the first, may take as long as two reports are apart.
        assert before.done <= after.done and before.seconds < after.seconds
        # Not more often than 20 times a second, but for the end.
        assert after is told[-1] or after.seconds - before.seconds > 0.04
    for progress in told:
        assert progress.rate == pytest.approx(progress.done / progress.seconds)
        assert progress.remaining == (pytest.approx((progress.total - progress.done) / progress.rate) if progress.done else None)


def test_the_end_is_told_once_also_where_shots_part():
    circuit = layers(4, 3, n_clbits=4).measure([0, 1], [0, 1])
    with circuit.when(0, 1):
        circuit.h(0)
    circuit.h(1).measure([0, 1, 2], [0, 1, 2]).h(2)
    with circuit.when([0, 1, 2, 3], 15):
        circuit.x(0)
    told = []
    run(circuit, shots=1000, seed=1, progress=told.append)
    # On a slow machine there are reports before it.
    assert {progress.total for progress in told} == {3 * 7 + 4}
    assert [progress.done == progress.total for progress in told] == [False] * (len(told) - 1) + [True]


def test_branches_count_by_their_share_of_the_shots(monkeypatch):
    # Every pass is told, so that how many reports there are follows from the circuit and not from the machine's speed.
    for module in (_drive, _progress):
        monkeypatch.setattr(module, "INTERVAL", 0.0)
    circuit = Circuit(14, 3)
    for bit in range(3):
        for step in layers(14, 5):
            circuit.append(step)
        circuit.measure(0, bit)
    told = []
    run(circuit.h(0), shots=1000, seed=1, progress=told.append)
    done = [progress.done for progress in told]
    assert len(done) > 3 and done == sorted(done) and done[-1] == told[-1].total == 3 * 5 * 27 + 1


@pytest.mark.parametrize("circuit", [Circuit(0), Circuit(3), Circuit(2, 2).measure([0, 1], [0, 1])])
def test_a_circuit_without_gates_has_an_end_too(circuit):
    told = []
    run(circuit, shots=2, progress=told.append)
    assert [(progress.done, progress.total) for progress in told] == [(0, 0)]


class Enough(Exception):
    pass


def test_an_exception_ends_the_run_and_the_state_is_that_of_the_first_gates():
    circuit, state, done = layers(20, 60), StateVector(20), []

    def stop(progress):
        done.append(progress.done)
        raise Enough

    with pytest.raises(Enough) as stopped:
        state.run(circuit, progress=stop)
    applied = stopped.value.gates_applied
    assert 0 < done[0] <= applied < len(circuit)
    first_part = Circuit(20)
    for step in circuit.instructions[:applied]:
        first_part.append(step)
    assert state.array.tobytes() == StateVector(20).run(first_part).array.tobytes()
    with pytest.raises(Enough):
        run(circuit, progress=stop)


def test_what_a_function_returns_is_ignored():
    assert StateVector(2).run(Circuit(2).x(0), progress=lambda progress: False).probability("10") == 1


def test_the_state_cannot_be_used_by_the_function_but_others_can():
    state, other, refusals = StateVector(3), StateVector(3), []

    def use(progress):
        for attempt in (lambda: state.x(0), lambda: state.array, state.release, lambda: state.run(layers(3, 1))):
            try:
                attempt()
            except RuntimeError as error:
                refusals.append(str(error))
        other.run(layers(3, 2))

    state.run(layers(3, 2), progress=use)
    assert len(refusals) == 4 and all("cannot be used" in refusal for refusal in refusals)
    assert state.array.tobytes() == other.array.tobytes()
    state.release()


def test_other_python_threads_go_on_meanwhile():
    ticks, over = [], threading.Event()

    def tick():
        while not over.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.005)

    thread = threading.Thread(target=tick)
    circuit, state = layers(22, 6), StateVector(22)
    thread.start()
    started = time.perf_counter()
    state.run(circuit)
    ended = time.perf_counter()
    over.set()
    thread.join()
    during = [moment for moment in ticks if started < moment < ended]
    # A run that held the interpreter would leave one gap as long as itself.
    gaps = np.diff([started, *during, ended])
    assert len(during) > 5 and gaps.max() < max(0.5 * (ended - started), 0.25)


def test_runs_in_several_threads_at_once():
    circuit, results = layers(12, 4), [None] * 4

    def work(i):
        results[i] = run(circuit, shots=1000, seed=1, progress=lambda progress: None).shots

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert all((shots == results[0]).all() for shots in results)


# Processes of their own

BEGINNING = """
import sys, time
import numpy as np
from velacamplix import Circuit, StateVector, run

def layers(n, count, n_clbits=0):
    circuit = Circuit(n, n_clbits)
    for _ in range(count):
        for qubit in range(n):
            circuit.h(qubit)
        for qubit in range(n - 1):
            circuit.cx(qubit, qubit + 1)
    return circuit

def lasting(n, seconds):
    # So many layers that running them takes about this long here and now.
    count, taken = 4, 0
    while taken < 0.3:
        count *= 2
        trial, state = layers(n, count), StateVector(n)
        start = time.perf_counter()
        state.run(trial)
        taken = time.perf_counter() - start
    return layers(n, round(count * seconds / taken))
"""


def process(script, **environment):
    return subprocess.Popen(
        [sys.executable, "-c", BEGINNING + textwrap.dedent(script)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env={**os.environ, "PYTHONIOENCODING": "utf-8", "COLUMNS": "120", **environment},
    )


def interrupted(script):
    """Send Ctrl-C soon after the script says so; return what it prints and how long it took to react."""
    child = process(script)
    assert child.stdout.readline() == b"running\n", child.communicate()
    time.sleep(0.3)
    child.send_signal(signal.SIGINT)
    sent = time.perf_counter()
    out, err = child.communicate(timeout=60)
    return out.decode(), err.decode(), child.returncode, time.perf_counter() - sent


def test_ctrl_c_stops_a_state_between_passes():
    out, err, status, seconds = interrupted("""
        circuit, state, told = lasting(20, 60), StateVector(20), []
        def tell_once(progress):
            if not told:
                print("running", flush=True)
            told.append(progress)
        try:
            state.run(circuit, progress=tell_once)
        except KeyboardInterrupt as error:
            print(error)
            applied = error.gates_applied
        assert 0 < applied < len(circuit)
        first_part = Circuit(20)
        for step in circuit.instructions[:applied]:
            first_part.append(step)
        assert state.array.tobytes() == StateVector(20).run(first_part).array.tobytes()
        state.reset().x(3)
        print(state.counts(5))
    """)
    assert status == 0, err
    first, second = out.splitlines()
    assert first.startswith("stopped after ") and first.endswith(" gates")
    assert second == str({"0001" + "0" * 16: 5})


@pytest.mark.parametrize("arguments", ["circuit", "circuit, progress=True", "circuit, shots=10, progress=print_nothing"])
def test_ctrl_c_ends_a_run_at_once(arguments):
    out, err, status, seconds = interrupted(f"""
        def print_nothing(progress):
            pass
        circuit = lasting(22, 60)
        print("running", flush=True)
        run({arguments})
    """)
    assert status == -signal.SIGINT
    assert "KeyboardInterrupt" in err  # on a slow machine while the state is still being made
    assert seconds < 10


def test_ctrl_c_stops_a_run_whose_shots_part():
    out, err, status, seconds = interrupted("""
        circuit = Circuit(4, 2000)
        for bit in range(2000):
            circuit.h(bit % 4).cx(bit % 4, (bit + 1) % 4).measure(bit % 4, bit)
        print("running", flush=True)
        run(circuit.h(0).h(1), shots=10**5)
    """)
    assert status == -signal.SIGINT and "KeyboardInterrupt" in err
    assert seconds < 10


def test_a_signal_handler_may_end_a_run_or_let_it_go_on():
    out, err, status, _ = interrupted("""
        import signal
        caught = []
        signal.signal(signal.SIGINT, lambda number, frame: caught.append(number))
        circuit = lasting(18, 6)
        print("running", flush=True)
        state = StateVector(18).run(circuit)
        print(len(caught), round(float(np.linalg.norm(state.array)), 6))
    """)
    assert (status, out) == (0, "1 1.0\n"), err


def watched(script, **environment):
    child = process(script, **{"VELACAMPLIX_QUIET_SECONDS": "0", **environment})
    out, err = child.communicate(timeout=120)
    assert child.returncode == 0, err
    return err.decode()  # with carriage returns, which text mode would hide


WITHOUT = "sys.modules['tqdm'] = None\n"
RUN = "run(lasting(16, 0.5), progress=True)\n"


@pytest.mark.parametrize("hidden", ["", WITHOUT])
def test_short_runs_show_nothing(hidden):
    assert watched(hidden + "run(layers(10, 3), progress=True)", VELACAMPLIX_QUIET_SECONDS="600") == ""


@pytest.mark.skipif(importlib.util.find_spec("tqdm") is None, reason="tqdm is not installed")
def test_a_bar_by_tqdm():
    shown = watched(RUN)
    assert "gates/s" in shown and "100%" in shown and shown.endswith("\n")


def test_one_line_without_it():
    shown = watched(WITHOUT + RUN)
    lines = shown.rstrip("\n").split("\r")[1:]
    assert shown.count("\n") == 1
    for line in lines:
        words = line.split()
        assert words[1] == "of" and words[3] == "gates" and "gates/s," in words and words[-1] == "left", line
    assert " (100%), " in lines[-1] and lines[-1].rstrip().endswith("0:00 left")


def test_a_bar_for_a_state_and_after_an_exception():
    shown = watched(WITHOUT + """
import signal
class Alarming:
    def __init__(self, stream):
        self.write, self.flush = stream.write, lambda: (stream.flush(), signal.raise_signal(signal.SIGALRM))
def stop(number, frame):
    sys.stderr = sys.__stderr__
    raise TimeoutError("enough")
signal.signal(signal.SIGALRM, stop)
# As soon as the bar is seen; what a handler raises within the bar is heard too.
sys.stderr = Alarming(sys.stderr)
try:
    StateVector(16).run(lasting(16, 20), progress=True)
except TimeoutError as error:
    sys.stderr.write(f"{error}!")
""")
    # The line is closed before anything else is written.
    assert shown.rstrip().endswith("\nenough!") and " gates/s" in shown


# The bar by itself: its time is what it is told


def after(seconds):
    return Progress(done=5, total=20, seconds=seconds, rate=10.0, remaining=1.5)


@pytest.mark.parametrize(("value", "quiet"), [(None, 1.0), ("", 1.0), (" 2.5 ", 2.5), ("0", 0.0), ("600", 600.0)])
def test_how_long_a_bar_keeps_quiet(value, quiet, monkeypatch, capsys):
    monkeypatch.setitem(sys.modules, "tqdm", None)
    monkeypatch.delenv("VELACAMPLIX_QUIET_SECONDS", raising=False)
    if value is not None:
        monkeypatch.setenv("VELACAMPLIX_QUIET_SECONDS", value)
    bar = _progress.checked(True)
    bar(after(quiet - 0.001))
    assert capsys.readouterr().err == ""
    bar(after(quiet))
    bar.close()
    assert capsys.readouterr().err == "\r5 of 20 gates (25%), 10 gates/s, 0:02 left\n"


@pytest.mark.parametrize("value", ["soon", "-1", "nan", "inf", "1s"])
def test_a_time_that_is_none_is_refused_before_the_run(value, monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_QUIET_SECONDS", value)
    with pytest.raises(ValueError) as error:
        run(Circuit(1).h(0), progress=True)
    assert "VELACAMPLIX_QUIET_SECONDS" in str(error.value) and repr(value) in str(error.value)
    assert run(Circuit(1).h(0), progress=False).n_qubits == 1


class Full(io.StringIO):
    def write(self, text):
        raise OSError(28, "No space left on device")


def closed():
    stream = io.StringIO()
    stream.close()
    return stream


@pytest.mark.parametrize("stream", [lambda: None, closed, Full])
@pytest.mark.parametrize("hidden", [[], ["tqdm"]])
def test_a_run_is_not_lost_where_no_bar_can_be_shown(hidden, stream, monkeypatch):
    monkeypatch.setenv("VELACAMPLIX_QUIET_SECONDS", "0")
    for name in hidden:
        monkeypatch.setitem(sys.modules, name, None)
    monkeypatch.setattr(sys, "stderr", stream())
    assert run(Circuit(2).x(0), shots=10, progress=True).counts == {"10": 10}
    assert StateVector(2).run(Circuit(2).x(0), progress=True).probability("10") == 1


@pytest.mark.parametrize("hidden", ["", WITHOUT])
def test_a_run_is_not_lost_where_standard_error_is_closed(hidden):
    script = f"import os\n{hidden}os.close(2)\nprint(run(Circuit(2).x(0), shots=10, progress=True).counts)"
    child = process(script, VELACAMPLIX_QUIET_SECONDS="0")
    assert child.communicate(timeout=120)[0] == b"{'10': 10}\n"
