"""Spheres and squares: arrows where the vectors point, colours as the entries say."""

import math

import numpy as np
import pytest
from pictures import some_density, some_state

from velacamplix import Circuit, StateVector, plot_bloch, plot_density, run

matplotlib = pytest.importorskip("matplotlib")
matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402

PAULI = np.array([[[0, 1], [1, 0]], [[0, -1j], [1j, 0]], [[1, 0], [0, -1]]])


def arrows(ax):
    """Tips of the arrows, by the heads that are filled in their colour; where there is none, of the dots."""
    heads = [patch.get_xy()[0] for patch in ax.patches if patch.get_facecolor()[:3] == matplotlib.colors.to_rgb("#d55e00")]
    dots = [line.get_xydata()[0] for line in ax.lines if line.get_marker() == "."]
    return np.array(heads), np.array(dots)


def texts(ax):
    return [text.get_text() for text in ax.texts]


def seen(vector):
    """Where a point of the sphere appears: turned about z by 25 degrees, then tilted by 18."""
    turn, tilt = math.radians(25), math.radians(18)
    about_z = np.array([[math.cos(turn), math.sin(turn), 0], [-math.sin(turn), math.cos(turn), 0], [0, 0, 1]])
    about_y = np.array([[math.cos(tilt), 0, math.sin(tilt)], [0, 1, 0], [-math.sin(tilt), 0, math.cos(tilt)]])
    return (about_y @ about_z @ vector)[1:]


def vectors_of(amplitudes, n):
    """Bloch vectors of all qubits by reduced density matrices, qubit 0 the lowest bit."""
    tensor = amplitudes.reshape((2,) * n)
    found = []
    for q in range(n):
        rows = np.moveaxis(tensor, n - 1 - q, 0).reshape(2, -1)
        found.append(np.einsum("kij,ji->k", PAULI, rows @ rows.conj().T).real)
    return np.array(found)


@pytest.mark.parametrize("vector", [(1, 0, 0), (0, 1, 0), (0, 0, 1), (0, 0, -1), (0.6, 0, 0.8), (-0.3, 0.2, -0.4)])
def test_an_arrow_points_where_its_vector_does(vector):
    ax = plot_bloch(vector)
    [tip], dots = arrows(ax)
    assert tip == pytest.approx(seen(vector)) and not len(dots)
    length = math.hypot(*vector)
    assert [text for text in texts(ax) if "length" in text] == ([] if length > 0.995 else [f"length {length:.2f}"])


def test_a_completely_mixed_qubit_is_a_dot():
    ax = plot_bloch([0, 0, 0])
    heads, [dot] = arrows(ax)
    assert not len(heads) and dot.tolist() == [0, 0] and texts(ax) == ["|0\u27e9", "|1\u27e9", "x", "y", "length 0.00"]


@pytest.mark.parametrize("precision", ["double", "single"])
def test_qubits_of_a_state(precision):
    state = StateVector(4, precision).set_state(some_state(4, layers=1).array, order="little")
    expected = vectors_of(state.array.astype(complex), 4)
    for qubits, shown in ((None, [0, 1, 2, 3]), ([2, 0], [2, 0]), (3, [3])):
        ax = plot_bloch(state, qubits)
        heads, _ = arrows(ax)
        assert [text for text in " ".join(texts(ax)).split() if text.isdigit()] == list(map(str, shown))
        heads = np.array([head - middle for head, middle in zip(heads, middles(ax))])
        assert heads == pytest.approx(np.array([seen(vector) for vector in expected[shown]]), abs=1e-5)


def test_qubits_of_a_result():
    [tip, other], _ = arrows(plot_bloch(run(Circuit(100).ry(0.5, 98)), [98, 3]))
    assert tip == pytest.approx(seen((math.sin(0.5), 0, math.cos(0.5))))
    assert other[0] == pytest.approx(3) and other[1] == pytest.approx(seen((0, 0, 1))[1])


def middles(ax):
    """Of the spheres, which are filled."""
    return [patch.get_path().get_extents().corners().mean(axis=0) for patch in ax.patches if len(patch.get_xy()) > 70]


def test_a_state_whose_norm_is_not_1():
    state = StateVector(1).h(0).matrix(np.diag([0.5, 0.5]), 0, check=False)
    [tip], _ = arrows(plot_bloch(state))
    assert tip == pytest.approx(seen((1, 0, 0)))


def test_spheres_do_not_overlap_and_fill_the_axes():
    for count in (1, 7, 30):
        for size in ((3.4, 2.4), (7, 2)):
            ax = pyplot.figure(figsize=size).subplots()
            plot_bloch(np.zeros((count, 3)), ax=ax)
            places = np.array(middles(ax))
            gaps = np.abs(places[:, None] - places[None]).max(axis=2)[~np.eye(count, dtype=bool)]
            assert len(places) == count and (count == 1 or gaps.min() >= 3)
            (left, right), (bottom, top) = ax.get_xlim(), ax.get_ylim()
            assert (places[:, 0] > left + 1).all() and (places[:, 0] < right - 1).all()
            assert (places[:, 1] > bottom + 1).all() and (places[:, 1] < top - 1).all()


@pytest.mark.parametrize(
    ("call", "error", "words"),
    [
        (lambda: plot_bloch("up"), TypeError, "source must be a StateVector, a Result or vectors of 3 real numbers, got 'up'"),
        (lambda: plot_bloch([1j, 0, 0]), TypeError, "source must be a StateVector, a Result or vectors"),
        (lambda: plot_bloch([1, 0]), ValueError, "shape (3,) or (k, 3), got an array of shape (2,)"),
        (lambda: plot_bloch(np.zeros((0, 3))), ValueError, "shape (3,) or (k, 3)"),
        (lambda: plot_bloch([1, 1, 0]), ValueError, "length 1 at most, got one of length 1.41421"),
        (lambda: plot_bloch([math.nan, 0, 0]), ValueError, "finite"),
        (lambda: plot_bloch(np.zeros((101, 3))), ValueError, "at most 100 vectors to be drawn, got 101"),
        (lambda: plot_bloch([0, 0, 1], qubits=0), TypeError, "qubits can only be given for a state"),
        (lambda: plot_bloch(StateVector(2), 2), IndexError, "qubits[0]"),
        (lambda: plot_bloch(StateVector(0)), ValueError, "at least 1"),
        (lambda: plot_bloch(run(Circuit(101).h(0))), ValueError, "at most 100 vectors to be drawn, got 101"),
        (lambda: plot_bloch(StateVector(1).matrix(np.zeros((2, 2)), 0, check=False)), ValueError, "finite"),
        (lambda: plot_bloch([0, 0, 1], labels=["a", "b"]), ValueError, "labels must be 1 text(s)"),
        (lambda: plot_bloch([0, 0, 1], ax=3), TypeError, "ax must be axes of matplotlib, got 3"),
        (lambda: plot_bloch([10**400, 0, 0]), TypeError, "vectors of 3 real numbers"),
        (lambda: plot_density([[10**400, 0], [0, 1]]), TypeError, "matrix must be an array of numbers"),
        (lambda: plot_density("rho"), TypeError, "matrix must be an array of numbers"),
        (lambda: plot_density(np.eye(3)), ValueError, "shape (2**k, 2**k), got an array of shape (3, 3)"),
        (lambda: plot_density(np.zeros((2, 4))), ValueError, "shape (2**k, 2**k)"),
        (lambda: plot_density(np.zeros((0, 0))), ValueError, "shape (2**k, 2**k)"),
        (lambda: plot_density(np.zeros((2048, 2048))), ValueError, "matrix must be of at most 10 qubits, got 11"),
        (lambda: plot_density([[math.inf, 0], [0, 0]]), ValueError, "finite"),
        (lambda: plot_density(np.eye(2), axes=3), TypeError, "axes must be a sequence"),
        (lambda: plot_density(np.eye(2), axes=[1, 2]), TypeError, "axes must be two axes of matplotlib"),
    ],
)
def test_refused(call, error, words):
    with pytest.raises(error) as raised:
        call()
    assert words in str(raised.value) and not pyplot.get_fignums()


# Density matrices


@pytest.mark.parametrize("n_qubits", [0, 1, 2, 5])
def test_entries_have_their_colours(n_qubits):
    matrix = some_density(n_qubits)
    axes = plot_density(matrix)
    colours = matplotlib.colormaps["RdBu_r"]
    most = max(np.abs(matrix.real).max(), np.abs(matrix.imag).max())
    for ax, part in zip(axes, (matrix.real, matrix.imag)):
        ax.figure.canvas.draw()
        [mesh] = ax.collections
        assert mesh.get_facecolor() == pytest.approx(colours((part.ravel() + most) / (2 * most)), abs=0.01)
        assert ax.get_ylim()[0] > ax.get_ylim()[1]  # row 0 is at the top
    assert [ax.get_xlabel() for ax in axes] == ["real part", "imaginary part"]
    assert all(not text.get_text() for text in axes[1].get_yticklabels())


def test_labels_are_positions():
    real, _ = plot_density(np.eye(4))
    assert [text.get_text() for text in real.get_yticklabels()] == ["00", "01", "10", "11"]
    assert real.get_xticks().tolist() == [0.5, 1.5, 2.5, 3.5]
    real, _ = plot_density(np.eye(64))
    shown = [text.get_text() for text in real.get_xticklabels()]
    assert 4 <= len(shown) <= 16 and all(int(text, 2) + 0.5 == place for text, place in zip(shown, real.get_xticks()))


def test_a_matrix_of_zeros():
    real, imaginary = plot_density(np.zeros((4, 4)))
    real.figure.canvas.draw()
    assert real.collections[0].get_facecolor() == pytest.approx(imaginary.collections[0].get_facecolor())


def test_axes_of_a_figure():
    pair = pyplot.subplots(1, 2)[1]
    assert plot_density(run(Circuit(1).h(0)).state.array.reshape(2, 1) * [[1, 1]], axes=pair) == tuple(pair)
