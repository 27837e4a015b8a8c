"""The worked examples, run as a reader would: what they claim is true, and their pictures are there."""

import re
import subprocess
import sys
import time
from pathlib import Path

import pytest

EXAMPLES = Path(__file__).resolve().parents[3] / "examples" / "python"
if not EXAMPLES.is_dir():
    pytest.skip(f"no folder {EXAMPLES}: the tests run outside the project", allow_module_level=True)
pyplot = pytest.importorskip("matplotlib.pyplot")


@pytest.fixture
def run(tmp_path):
    def run_example(name):
        started = time.monotonic()
        ended = subprocess.run(
            [sys.executable, EXAMPLES / f"{name}.py"], cwd=tmp_path, capture_output=True, text=True, timeout=300
        )
        assert (ended.returncode, ended.stderr) == (0, ""), ended.stderr
        print(f"{name}: {time.monotonic() - started:.1f} s")
        picture = pyplot.imread(tmp_path / f"{name}.png")
        assert [file.name for file in tmp_path.iterdir()] == [f"{name}.png"]
        assert picture.shape[0] > 300 and picture.shape[1] > 500 and picture[..., :3].std() > 0.05
        return ended.stdout

    return run_example


def number(pattern, output):
    """The number in the first group of the only place that matches."""
    found = re.findall(pattern, output)
    assert len(found) == 1, (pattern, output)
    return float(found[0])


def test_every_example_is_tested():
    here = Path(__file__).read_text()
    names = [file.stem for file in EXAMPLES.glob("*.py")]
    assert len(names) == 10 and all(f'run("{name}")' in here for name in names)


def test_grover(run):
    output = run("grover")
    assert "best number of rounds: 25\n" in output
    assert number(r"after them: (\S+)", output) > 0.999
    assert number(r"deviation from the formula: (\S+)", output) < 1e-10
    assert "most frequent of 1000 shots: 1011001110, " in output


def test_vqe_h2(run):
    output = run("vqe_h2")
    hartree_fock, found, exact = (
        number(pattern, output)
        for pattern in (r"Hartree-Fock energy: +(\S+)", r"energies: +(\S+)", r"diagonalisation: +(\S+)")
    )
    # The energies of this molecule in this basis, from any textbook.
    assert hartree_fock == pytest.approx(-1.1167, abs=1e-4) and exact == pytest.approx(-1.1373, abs=1e-4)
    assert exact - 1e-6 <= found < exact + 1.6e-3 and "within chemical accuracy: True" in output
    mean, error = (number(pattern, output) for pattern in (r"per term: (\S+)", r"± (\S+)"))
    assert abs(mean - found) < 6 * error and 0 < error < 0.01


def test_qaoa_maxcut(run):
    output = run("qaoa_maxcut")
    averages = [float(value) for value in re.findall(r"layers: +(\S+) of", output)]
    largest = number(r"largest cut is (\d+)", output)
    assert len(averages) == 5 and averages == sorted(averages) and 0.95 * largest < averages[-1] <= largest
    winner = re.search(r"shots: ([01]{12}) cuts (\d+)", output)
    edges = [(i, (i + 1) % 12) for i in range(12)] + [(i, i + 6) for i in range(6)]
    assert sum(winner[1][a] != winner[1][b] for a, b in edges) == int(winner[2]) == largest
    assert number(r"shots that are optimal: (\S+)", output) > 0.5
    assert averages[2] + 0.5 < number(r"every angle by itself: ([\d.]+),", output) <= largest


def test_heisenberg_chain(run):
    output = run("heisenberg_chain")
    # Twelve spins of an open chain, from any table of its energies.
    assert number(r"exact energy: (\S+)", output) == pytest.approx(4 * -5.142091, abs=1e-5)
    assert 0 < number(r"the exact one by (\S+) of it", output) < 1e-3
    assert number(r"gradients taken: (\d+)", output) < 100


def test_natural_gradient(run):
    output = run("natural_gradient")
    above = [float(text) for text in re.findall(r": (\S+) above the exact energy", output)]
    plain, plain_in_units, natural, natural_in_units = above
    assert natural == natural_in_units < plain < plain_in_units / 2
    assert number(r"two natural ones: (\S+)", output) < 1e-9


def test_torch_classifier(run):
    pytest.importorskip("torch", reason="PyTorch is not installed; its wheels are too large to fetch for tests")
    output = run("torch_classifier")
    before, after = (number(pattern, output) for pattern in (r"loss from (\S+)", r"to (\S+)\n"))
    assert after < before / 3 and number(r"of 200 new points (\S+)%", output) > 80


def test_phase_estimation(run):
    output = run("phase_estimation")
    assert "most likely reading 47/128" in output
    assert number(r"its probability: (\S+),", output) > 4 / 3.1416**2
    assert number(r"deviation from theory: (\S+)", output) < 1e-12
    assert number(r"last digit: (\d+) of 1000", output) > 950


def test_random_circuit_sampling(run):
    output = run("random_circuit_sampling")
    assert number(r"norm (\S+)", output) == pytest.approx(1, abs=1e-9)
    assert number(r"mean of \(2\^n p\)\^2: (\S+),", output) == pytest.approx(2, abs=0.1)
    for limit, share in ((1, 0.3679), (3, 0.0498)):
        assert number(rf"2\^n p > {limit}: (\S+),", output) == pytest.approx(share, abs=0.01)
    for name, score in (("ideal", 1), ("fidelity 1/2", 0.5), ("uniform", 0)):
        assert number(rf"cross entropy, {name}: (\S+)", output) == pytest.approx(score, abs=0.05)


def test_zero_noise_extrapolation(run):
    output = run("zero_noise_extrapolation")
    ideal = number(r"without noise: (\S+)", output)
    for way in ("gates folded", "probabilities scaled"):
        off, errors = [], []
        for found in ("with noise", "linear", "Richardson"):
            pattern = rf"{way}, {found}: {{}} ± {{}}, exactly {{}}\n".replace("{}", r"(\S+)")
            mean, error, exact = (float(text) for text in re.search(pattern, output).groups())
            assert 0 < abs(mean - exact) < 5 * error, (way, found)
            off.append(abs(exact - ideal))
            errors.append(error)
        assert off[0] > 1.5 * off[1] > 3 * off[2] and errors == sorted(errors) and errors[2] < 0.02


def test_noisy_ghz(run):
    output = run("noisy_ghz")
    assert "channel thermal_relaxation(" in output and " misread (" in output
    found = re.findall(r"^ ?(\d+) qubits: (\S+) \((.*)\)$", output, flags=re.MULTILINE)
    assert [int(n) for n, _, _ in found] == 3 * [2, 4, 6, 8, 10, 12]
    # Small ones exactly, large ones by trajectories.
    assert found[0][2].endswith("on a density matrix") and found[-1][2].endswith("trajectories")
    shares = [[float(share) for _, share, _ in found[first : first + 6]] for first in (0, 6, 12)]
    assert all(series == sorted(series, reverse=True) for series in shares)
    without_misreading, middle, end = shares
    assert all(well > misread + 0.02 for well, misread in zip(without_misreading, middle))
    assert middle[-1] > end[-1] + 3 * (2 * 0.25 / 5000) ** 0.5
