"""Circuits painted by Matplotlib: what is written, how large it is, and that letters fit their boxes."""

import itertools
import subprocess
import sys
from xml.etree import ElementTree

import pytest
from random_circuits import random_circuit

from velacamplix import Circuit, GateDefinition, Parameter, plot_circuit
from velacamplix.views import shapes

matplotlib = pytest.importorskip("matplotlib")
matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402


def wide(n_qubits):
    circuit = Circuit(n_qubits, n_qubits)
    for q in range(n_qubits):
        circuit.ry(Parameter(f"theta{q}"), q)
    for q in range(n_qubits - 1):
        circuit.cx(q, q + 1)
    if n_qubits > 2:
        circuit.gate(GateDefinition("$mixer_{2}$", Circuit(3).swap(0, 2)), [0, 2, 1]).barrier()
    circuit.measure(range(n_qubits), range(n_qubits))
    with circuit.when("c", 1):
        circuit.x(0)
    return circuit


def extents(ax):
    ax.figure.canvas.draw()
    return [(text.get_text(), text.get_window_extent()) for text in ax.texts]


@pytest.mark.parametrize("width", [3.4, 6.4, 7.0])
@pytest.mark.parametrize("n_qubits", [1, 5, 30])
def test_letters_fit_and_do_not_overlap(n_qubits, width):
    circuit = wide(n_qubits)
    ax = plot_circuit(circuit, width)
    found = extents(ax)
    whole = ax.figure.bbox
    for text, box in found:
        assert whole.x0 <= box.x0 and box.x1 <= whole.x1 and whole.y0 <= box.y0 and box.y1 <= whole.y1, text
    # Half a point of the height of letters is air.
    air = 0.5 * ax.figure.dpi / 72
    for (one, box), (two, other) in itertools.combinations(found, 2):
        apart = box.x1 <= other.x0 or other.x1 <= box.x0 or box.y1 - air <= other.y0 + air or other.y1 - air <= box.y0 + air
        assert apart, (one, two)
    inches = ax.figure.get_size_inches()
    assert inches[0] <= width and inches[1] < 60
    picture = shapes.picture(circuit.n_qubits, circuit.registers, circuit.instructions, 72 * width)
    assert tuple(inches) == pytest.approx((picture.width / 72, picture.height / 72))
    written = [shape for shape in picture.shapes if isinstance(shape, shapes.Text)]
    assert [text for text, _ in found] == [shape.text.replace("$", r"\$") for shape in written]
    # The room that is kept for a text is enough for it, in the font of the figure.
    for shape, (text, box) in zip(written, found):
        assert box.width * 72 / ax.figure.dpi <= shape.width + 0.5, text
    assert {text.get_fontsize() for text in ax.texts} <= {8.0, 6.5}


@pytest.mark.parametrize("seed", range(3))
def test_what_is_drawn_is_what_the_layout_says(seed):
    circuit = random_circuit(seed)
    ax = plot_circuit(circuit, 5)
    picture = shapes.picture(circuit.n_qubits, circuit.registers, circuit.instructions, 360)
    drawn = sorted(path.get_extents().bounds for collection in ax.collections[:3] for path in collection.get_paths())
    boxes = sorted(shape[:4] for shape in picture.shapes if isinstance(shape, shapes.Box))
    assert [tuple(bounds) for bounds in drawn] == [pytest.approx(box, abs=0.01) for box in boxes]
    lines = [tuple(segment.ravel()) for collection in ax.collections[3:7] for segment in collection.get_segments()]
    assert sorted(lines) == sorted(shape[:4] for shape in picture.shapes if isinstance(shape, shapes.Line))


@pytest.mark.parametrize("size", [(3.4, 2.4), (6.4, 4.8), (2.0, 6.0)])
def test_axes_of_a_figure(size):
    figure, (left, right) = pyplot.subplots(1, 2, figsize=size)
    circuit = wide(5)
    assert plot_circuit(circuit, ax=left) is left
    right.plot([0, 1])
    place = left.get_window_extent()
    for text, box in extents(left):
        assert place.x0 - 1 <= box.x0 and box.x1 <= place.x1 + 1 and place.y0 - 1 <= box.y0 and box.y1 <= place.y1 + 1, text
    assert {text.get_text() for text in left.texts} >= {"RY(theta0)", "q[4]", r"\$mixer_{2}\$", "if c==1"}


def test_lines_and_letters_stay_lines_and_letters(tmp_path):
    file = tmp_path / "circuit.svg"
    with pyplot.rc_context({"svg.fonttype": "none", "svg.hashsalt": "x"}):
        plot_circuit(wide(5), 3.4).figure.savefig(file, metadata={"Date": None})
    page = ElementTree.parse(file).getroot()
    assert not list(page.iter("{http://www.w3.org/2000/svg}image"))
    texts = ["".join(element.itertext()) for element in page.iter("{http://www.w3.org/2000/svg}text")]
    assert "RY(theta3)" in texts and "$mixer_{2}$" in texts


def test_a_dark_style():
    with pyplot.style.context("dark_background"):
        ax = plot_circuit(wide(3))
        assert {text.get_color() for text in ax.texts} == {"white"}
        assert all(collection.get_edgecolor()[0].tolist() == [1, 1, 1, 1] for collection in ax.collections[:3] if len(collection.get_paths()))
        assert all(max(collection.get_facecolor()[0][:3]) < 0.3 for collection in ax.collections[:3])


def test_idle_qubits_may_be_left_out():
    assert [text.get_text() for text in plot_circuit(Circuit(600).h(7), idle=False).texts] == ["H", "q[7]"]


def test_circuits_without_anything():
    for circuit in (Circuit(0), Circuit(1)):
        plot_circuit(circuit).figure.canvas.draw()


@pytest.mark.parametrize(
    ("call", "error", "words"),
    [
        (lambda: plot_circuit("H 0"), TypeError, "circuit must be a Circuit, got 'H 0'"),
        (lambda: plot_circuit(Circuit(1), "wide"), TypeError, "width must be a real number"),
        (lambda: plot_circuit(Circuit(1), 1), ValueError, "width must be from 1.5 to 200 inches, got 1"),
        (lambda: plot_circuit(Circuit(1), float("nan")), ValueError, "width must be finite"),
        (lambda: plot_circuit(Circuit(1), idle=0), TypeError, "idle must be True or False"),
        (lambda: plot_circuit(Circuit(1), ax=3), TypeError, "ax must be axes of matplotlib, got 3"),
        (lambda: plot_circuit(Circuit(1), 3, ax=3), TypeError, "width cannot be given with ax"),
        (lambda: plot_circuit(Circuit(501)), ValueError, "at most 500 qubits"),
    ],
)
def test_refused(call, error, words):
    with pytest.raises(error) as raised:
        call()
    assert words in str(raised.value) and not pyplot.get_fignums()


def test_without_matplotlib():
    script = "import sys; sys.modules['matplotlib'] = None\nfrom velacamplix import *\nplot_circuit(Circuit(1))"
    ended = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert ended.stderr.splitlines()[-1] == (
        "ModuleNotFoundError: plot_circuit needs matplotlib; install it with: pip install matplotlib"
    )
