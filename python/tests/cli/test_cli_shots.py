"""`velacamplix run` with shots, seeds, observables and JSON, as real processes."""

import json
import re

import pytest
from test_cli import failed, table, write  # noqa: F401  (a fixture)

from velacamplix import Circuit, StateVector

GHZ = "qreg q[3];\ncreg c[3];\nh q[0];\ncx q[0], q[1];\ncx q[1], q[2];\nmeasure q -> c;\n"


def test_shots_are_counted(command, write):  # noqa: F811
    ended = command("run", write(GHZ), "--shots", 1000, "--seed", 7)
    assert "1000 shots, seed 7: outcomes of the measured bits, leftmost first: c[0] c[1] c[2]" in ended.stdout
    counts = {outcome: int(count) for outcome, count in table(ended)}
    state = StateVector(3, seed=7).h(0).cnot(0, 1).cnot(1, 2)
    assert counts == state.counts(1000)
    rows = [row.split() for row in ended.stdout.splitlines()[4:]]
    assert set(rows[0][2]) == {"█"} and len(rows[0][2]) >= len(rows[1][2])


def test_the_same_seed_gives_the_same_counts(command, write):  # noqa: F811
    name = write("qreg q[6];\nh q;\n")
    one, two, three = [
        table(command("run", name, "--shots", 500, "--seed", seed, "--threads", threads))
        for seed, threads in ((3, 1), (3, 2), (4, 1))
    ]
    assert one == two != three


def test_a_seed_by_chance_is_told_and_repeats_the_run(command, write):  # noqa: F811
    name = write("qreg q[6];\nh q;\n")
    ended = command("run", name, "--shots", 500)
    seed = re.search(r"500 shots, seed (\d+)", ended.stdout).group(1)
    assert table(command("run", name, "--shots", 500, "--seed", seed)) == table(ended)


def test_the_most_frequent_come_first_and_the_rest_is_summed_up(command, write):  # noqa: F811
    ended = command("run", write("qreg q[4];\nry(0.9) q;\n"), "--shots", 2000, "--top", 3, "--seed", 1)
    rows = table(ended)
    assert len(rows) == 4 and rows[-1][0] == "others"
    assert rows[0][1] >= rows[1][1] >= rows[2][1] and sum(count for _, count in rows) == 2000


def test_one_shot(command, write):  # noqa: F811
    ended = command("run", write("qreg q[1];\nx q[0];\n"), "--shots", 1, "--seed", 0)
    assert "1 shot, seed 0:" in ended.stdout and table(ended) == [("1", 1)]


def test_a_qubit_measured_into_two_bits(command, write):  # noqa: F811
    body = "qreg q[2];\ncreg c[3];\nx q[1];\nmeasure q[1] -> c[0];\nmeasure q[0] -> c[1];\nmeasure q[1] -> c[2];\n"
    assert table(command("run", write(body), "--shots", 5)) == [("101", 5)]


def test_a_program_without_qubits(command, write):  # noqa: F811
    ended = command("run", write(""), "--shots", 5, "--json")
    assert json.loads(ended.stdout)["counts"] == {"": 5}


# Observables


def test_expectation_values(command, write):  # noqa: F811
    ended = command("run", write(GHZ), "--observable", "Z0 Z1", "--observable", "0.5*X0 X1 X2 - 2", "--observable=-Z0")
    rows = ended.stdout.split("expectation values\n")[1].splitlines()
    assert [re.split(r"\s{2,}", row) for row in rows] == [
        ["Z0 Z1", "1.000000"],
        ["0.5*X0 X1 X2 - 2", "-2.000000"],  # measured at the end
        ["-Z0", "0.000000"],
    ]
    assert "here 0, 1, 2: expectation values are those after all instructions" in ended.stderr
    unmeasured = re.sub("measure.*\n", "", GHZ)
    ended = command("run", write(unmeasured), "--observable", "0.5*X0 X1 X2 - 2")
    assert ended.stdout.splitlines()[-1].split()[-1] == "-1.500000" and ended.stderr == ""


def test_complex_and_small_expectation_values(command, write):  # noqa: F811
    ended = command("run", write("qreg q[1];\n"), "--observable", "(1-2j)*Z0", "--observable", "1e-7*Z0")
    rows = [re.split(r"\s{2,}", row) for row in ended.stdout.splitlines()[-2:]]
    assert rows == [["(1-2j)*Z0", "1-2j"], ["1e-7*Z0", "1e-07"]]


def test_estimates_come_with_shots(command, write):  # noqa: F811
    ended = command("run", write(GHZ), "--observable", "Z0", "--shots", 10000, "--seed", 3)
    assert "expectation values, exact and from the same number of shots per term" in ended.stdout
    text, exact, estimate = re.split(r"\s{2,}", ended.stdout.splitlines()[-1])
    mean, error = map(float, estimate.split(" ± "))
    assert (text, float(exact)) == ("Z0", 0) and abs(mean) < 5 * error and error == pytest.approx(0.01, rel=0.01)


def test_a_terminal_that_knows_ascii_only(command, write):  # noqa: F811
    ended = command("run", write(GHZ), "--observable", "Z0", "--shots", 10, PYTHONIOENCODING="ascii")
    assert ended.returncode == 0 and " +- " in ended.stdout.splitlines()[-1]


# JSON


def test_probabilities_as_json(command, write):  # noqa: F811
    ended = command("run", write(GHZ), "--json", "--threads", 2, "--observable", "Z0 Z1", "--top", 1)
    told = json.loads(ended.stdout)
    assert ended.stderr == "" and told.pop("seconds") > 0
    assert told.pop("probabilities") == pytest.approx({"000": 0.5}) and told.pop("others") == pytest.approx(0.5)
    assert told["observables"][0].pop("expectation") == pytest.approx(1)
    assert told == {
        "file": "circuit.qasm",
        "qubits": 3,
        "gates": 3,
        "precision": "double",
        "threads": 2,
        "passes": 1,
        "outcomes_of": "the measured bits",
        "labels": ["c[0]", "c[1]", "c[2]"],
        "observables": [{"observable": "Z0 Z1"}],
    }


def test_counts_as_json_are_complete(command, write):  # noqa: F811
    name = write("qreg q[5];\nh q;\n")
    told = json.loads(command("run", name, "--json", "--shots", 3000, "--seed", 9, "--precision", "single").stdout)
    state = StateVector(5, "single", seed=9).run(Circuit(5).h(0).h(1).h(2).h(3).h(4))
    assert told["counts"] == state.counts(3000) and len(told["counts"]) == 32
    assert (told["shots"], told["seed"], told["precision"]) == (3000, 9, "single")
    assert "probabilities" not in told and told["outcomes_of"] == "all qubits"


def test_estimates_as_json(command, write):  # noqa: F811
    arguments = ["--json", "--shots", 100, "--observable", "Z0 Z1", "--observable", "1j*Z0 Z1 + 1"]
    real, complex_one = json.loads(command("run", write(GHZ), *arguments).stdout)["observables"]
    assert real == {"observable": "Z0 Z1", "expectation": pytest.approx(1), "mean": 1, "standard_error": 0}
    assert complex_one["mean"] == {"real": 1, "imag": 1} and complex_one["standard_error"] == 0
    assert complex_one["expectation"] == {"real": 1, "imag": pytest.approx(1)}


# What goes wrong


@pytest.mark.parametrize(
    ("arguments", "words"),
    [
        (("--shots", "0"), "argument --shots: expected a whole number of at least 1, got '0'"),
        (("--shots", "-5"), "argument --shots"),
        (("--shots", "1e6"), "got '1e6'"),
        (("--shots", "9" * 5000), "argument --shots: expected a whole number of at least 1, got '999"),
        (("--seed", "-1"), "argument --seed"),
        (("--seed", str(2**32)), "argument --seed: expected a whole number from 0 to 4294967295, got '4294967296'"),
        (("--observable", "Q0"), "argument --observable: observable must have a factor X, Y, Z or I"),
        (("--observable", "X0 + "), "at position 5, got the end in 'X0 + '"),
        (("--observable", "%s*X0"), "at position 0, got '%s*X0'"),
    ],
)
def test_wrong_arguments(arguments, words, command, write):  # noqa: F811
    failed(command("run", write(GHZ), *arguments), 2, "usage: velacamplix", words)


def test_an_observable_on_more_qubits(command, write):  # noqa: F811
    words = "velacamplix: argument --observable: 'Z0 Z3' needs 4 qubits, circuit.qasm has 3"
    failed(command("run", write(GHZ), "--observable", "Z0 Z3"), 2, words)


@pytest.mark.parametrize("arguments", [(), ("--json", "--shots", 10)])
def test_failures_print_no_results(arguments, command, write):  # noqa: F811
    failed(command("run", write("qreg q[2]\n"), *arguments), 1, "circuit.qasm:")
    failed(command("run", write("qreg q[50];\nh q;\n"), *arguments), 1, "largest n that fits")


def test_an_observable_beyond_single_precision(command, write):  # noqa: F811
    # Sums are formed in double precision whatever the state's.
    ended = command("run", write("qreg q[1];\n"), "--precision", "single", "--observable", "1e300*Z0")
    assert ended.returncode == 0 and ended.stdout.splitlines()[-1].split() == ["1e300*Z0", "1e+300"]
