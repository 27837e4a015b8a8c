"""Pictures: what is drawn, and whether it can be read. Real figures, drawn to files by matplotlib."""

import math
import subprocess
import sys

import numpy as np
import pytest
from pictures import some_counts, some_state

from velacamplix import Circuit, Counts, StateVector, run
from velacamplix.plots.plots import plot_counts, plot_probabilities, plot_state

matplotlib = pytest.importorskip("matplotlib")
matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402


def bars(ax):
    """Labels that are shown, by place, and heights of all bars, by place."""
    heights = {round(bar.get_x() + bar.get_width() / 2): bar.get_height() for bar in ax.patches}
    labels = {round(tick): text.get_text() for tick, text in zip(ax.get_xticks(), ax.get_xticklabels())}
    return labels, heights


def labels_overlap(ax):
    ax.figure.canvas.draw()
    boxes = [text.get_window_extent() for text in ax.get_xticklabels() if text.get_text()]
    return any(one.x1 > two.x0 for one, two in zip(boxes, boxes[1:]))


# Readable


@pytest.mark.parametrize(
    ("number", "n_bits"), [(1, 1), (2, 2), (8, 3), (8, 12), (32, 5), (64, 20), (200, 8), (200, 30), (256, 60), (3000, 16)]
)
def test_labels_do_not_overlap_and_lie_inside_the_picture(number, n_bits):
    ax = plot_counts(some_counts(number, n_bits))
    assert not labels_overlap(ax)
    whole = ax.figure.bbox
    for text in [*ax.get_xticklabels(), ax.xaxis.label, ax.yaxis.label, *ax.texts]:
        box = text.get_window_extent()
        assert whole.x0 <= box.x0 and box.x1 <= whole.x1 and whole.y0 <= box.y0 and box.y1 <= whole.y1, text


@pytest.mark.parametrize("number", [2, 30, 200])
def test_labels_do_not_overlap_in_a_narrow_place(number):
    _, (left, right) = pyplot.subplots(1, 2, figsize=(7, 3), layout="constrained")
    assert plot_counts(some_counts(number, 10), ax=left) is left
    assert plot_state(some_state(8), ax=right) is right
    assert not labels_overlap(left) and not labels_overlap(right)


def test_few_outcomes_are_all_labelled():
    counts = some_counts(30, 8)
    labels, heights = bars(plot_counts(counts))
    assert list(labels.values()) == list(counts) and list(heights.values()) == list(counts.values())


def test_of_200_outcomes_all_are_drawn_and_the_largest_labelled():
    counts = some_counts(200, 8)
    labels, heights = bars(plot_counts(counts))
    assert list(heights.values()) == list(counts.values())
    assert 16 <= len(labels) <= 32 and all(list(counts)[place] == label for place, label in labels.items())
    assert counts.most_likely(1)[0][0] in labels.values()
    labelled = np.mean([counts[label] for label in labels.values()])
    assert labelled > 1.4 * np.mean(list(counts.values()))


def test_of_thousands_the_largest_are_drawn_and_the_others_summed_up():
    counts = some_counts(3000, 14)
    ax = plot_counts(counts)
    labels, heights = bars(ax)
    largest = dict(counts.most_likely(32))
    assert list(labels.values()) == [*sorted(largest), f"2968 others\n{counts.shots - sum(largest.values())}"]
    assert [heights[place] for place in range(32)] == [largest[outcome] for outcome in sorted(largest)]
    assert [text.get_text() for text in ax.texts] == ["↑"]
    # The others are cut off, so that the rest can be seen.
    assert max(heights.values()) <= ax.get_ylim()[1] <= 1.5 * max(largest.values())


def test_a_small_rest_is_drawn_to_scale():
    ax = plot_counts({"00": 50, "01": 40, "10": 7, "11": 3}, top=2)
    labels, heights = bars(ax)
    assert list(labels.values()) == ["00", "01", "2 others\n10"] and list(heights.values()) == [50, 40, 10]
    assert not ax.texts


def test_counts_of_a_result():
    result = run(Circuit(2, 2).h(0).cx(0, 1).measure([0, 1], [0, 1]), shots=100, seed=1)
    labels, heights = bars(plot_counts(result))
    assert dict(zip(labels.values(), heights.values())) == result.counts


def test_nothing_to_show():
    for ax in (plot_counts({}), plot_probabilities({}), plot_counts({"0": 0})):
        assert not ax.patches and [text.get_text() for text in ax.texts] == ["nothing to show"]
        ax.figure.canvas.draw()


def test_no_qubits():
    assert len(plot_state(StateVector(0)).patches) == len(plot_counts({"": 3}).patches) == 1
    assert len(plot_probabilities(StateVector(2), qubits=[]).patches) == 1


def test_pictures_are_saved(tmp_path):
    file = tmp_path / "counts.png"
    plot_counts(some_counts(8, 3)).figure.savefig(file)
    pixels = pyplot.imread(file)
    assert pixels.shape[0] > 300 and pixels.shape[1] > 500 and (pixels[..., :3] < 0.9).mean() > 0.05


# Right


@pytest.mark.parametrize("order", ["big", "little"])
@pytest.mark.parametrize("n", [3, 8, 11])
def test_probabilities_of_a_state(n, order):
    state = some_state(n)
    labels, heights = bars(plot_probabilities(state, order=order))
    expected = state.distribution(order=order)
    if n <= 8:
        assert list(heights.values()) == pytest.approx(expected[expected > 1e-9])
    else:
        assert "others\n0." in list(labels.values())[-1] and len(heights) == 33
    for place, label in labels.items():
        if "others" not in label:
            assert heights[place] == pytest.approx(expected[int(label, 2)])


def test_probabilities_of_some_qubits():
    state = StateVector(3).h(0).x(2)
    labels, heights = bars(plot_probabilities(state, [2, 0]))
    assert list(labels.values()) == ["10", "11"] and list(heights.values()) == pytest.approx([0.5, 0.5])
    labels, _ = bars(plot_probabilities(state, [2, 0], order="little"))
    assert list(labels.values()) == ["01", "11"]
    assert plot_probabilities(state).get_xlabel() == "outcome, qubit 0 left"


@pytest.mark.parametrize(
    "source", [{"10": 0.25, "01": 0.75}, Counts({"10": 1, "01": 3}), [0, 0.75, 0.25, 0], np.array([0, 0.75, 0.25, 0])]
)
def test_probabilities_of_other_things(source):
    labels, heights = bars(plot_probabilities(source))
    assert list(labels.values()) == ["01", "10"] and list(heights.values()) == [0.75, 0.25]


def test_the_rest_of_a_large_state():
    ax = plot_probabilities(StateVector(18).set_basis_state("+" * 18), top=4)
    labels, _ = bars(ax)
    assert list(labels.values())[4:] == ["others\n1"] and [text.get_text() for text in ax.texts] == ["↑"]


def colour_phase(bar):
    """The phase whose colour a bar has."""
    phases = np.linspace(-math.pi, math.pi, 511)
    colours = matplotlib.colormaps["twilight"]((phases + math.pi) / (2 * math.pi))
    return phases[np.abs(colours - np.array(bar.get_facecolor())).sum(axis=1).argmin()]


@pytest.mark.parametrize("order", ["big", "little"])
def test_amplitudes_and_phases(order):
    state = some_state(4)
    ax = plot_state(state, order=order)
    amplitudes = state.statevector(order=order)
    labels, heights = bars(ax)
    assert list(labels.values()) == [format(i, "04b") for i in range(16)]
    assert list(heights.values()) == pytest.approx(np.abs(amplitudes))
    for bar, amplitude in zip(ax.patches, amplitudes):
        turn = colour_phase(bar) - np.angle(amplitude)
        assert abs((turn + math.pi) % (2 * math.pi) - math.pi) < 0.03
    scale = ax.figure.axes[1]
    assert [text.get_text() for text in scale.get_yticklabels()] == ["−π", "−π/2", "0", "π/2", "π"]
    assert scale.get_ylabel() == "phase"


def test_amplitudes_of_an_array_and_without_legend():
    ax = plot_state([0, 0.6, 0, -0.8j], legend=False)
    labels, heights = bars(ax)
    assert list(labels.values()) == ["01", "11"] and list(heights.values()) == pytest.approx([0.6, 0.8])
    assert [colour_phase(bar) for bar in ax.patches] == pytest.approx([0, -math.pi / 2], abs=0.03)
    assert len(ax.figure.axes) == 1


@pytest.mark.parametrize("as_array", [False, True])
def test_what_is_left_out_of_a_large_state(as_array):
    state = some_state(11)
    amplitudes = state.statevector(order="big")
    ax = plot_state(amplitudes if as_array else state, top=5)
    largest = np.sort(np.abs(amplitudes))[-5:]
    assert sorted(bar.get_height() for bar in ax.patches) == pytest.approx(largest)
    rest = 1 - (largest**2).sum()
    assert ax.get_xlabel().splitlines()[1] == f"the 5 largest; probability of all others {rest:.3g}"


# Several data sets, orders, errors


def sets(ax):
    """Heights of each data set by outcome, where each of its outcomes is labelled."""
    labels, _ = bars(ax)
    names = [labels[place].split("\n")[0] for place in sorted(labels)]
    found = [list(container) for container in ax.containers if isinstance(container, matplotlib.container.BarContainer)]
    return [{name: bar.get_height() for name, bar in zip(names, container)} for container in found]


def errors(ax):
    """Half the length of each error bar, by the middle of its bar and its height."""
    found = {}
    for container in ax.containers:
        if isinstance(container, matplotlib.container.ErrorbarContainer):
            for (x, low), (_, high) in container.lines[2][0].get_segments():
                found[round(x, 6)] = ((high + low) / 2, (high - low) / 2)
    return found


def test_two_data_sets_side_by_side():
    first, second = {"00": 40, "11": 60}, Counts({"00": 30, "01": 5, "11": 65})
    ax = plot_counts([first, second], labels=["ideal", "noisy"])
    assert sets(ax) == [{"00": 40, "01": 0, "11": 60}, dict(second)]
    assert [text.get_text() for text in ax.get_legend().get_texts()] == ["ideal", "noisy"]
    blue, orange = ax.containers
    assert blue[0].get_facecolor() != orange[0].get_facecolor()
    assert blue[0].get_x() + blue[0].get_width() == pytest.approx(orange[0].get_x())
    assert ax.get_ylabel() == "counts of 100 shots each"
    assert plot_counts([first, {"00": 1}]).get_ylabel() == "counts"
    assert plot_counts(first).get_legend() is None
    assert plot_counts({"0": 1}).get_ylabel() == "counts of 1 shot"


def test_the_largest_of_several_are_those_with_the_largest_share():
    ax = plot_counts([{"00": 90, "01": 10}, {"10": 3, "00": 1}], top=2)
    shown = sets(ax)
    assert shown[0] == {"00": 90, "10": 0} and shown[2] == {"00": 1, "10": 3}
    labels, _ = bars(ax)
    assert list(labels.values())[-1] == "1 other\n10, 0"


def test_results_and_arrays_may_be_several():
    results = [run(Circuit(1, 1).h(0).measure(0, 0), shots=50, seed=seed) for seed in (1, 2)]
    assert sets(plot_counts(results)) == [dict(result.counts) for result in results]
    state = StateVector(2).h(0)
    expected = [{"00": 0.5, "01": 0, "10": 0.5}, {"00": 0.25, "01": 0.75, "10": 0}]
    for second in ([0.25, 0.75, 0, 0], {"00": 0.25, "01": 0.75}, Counts({"00": 1, "01": 3})):
        drawn = sets(plot_probabilities([state, second]))
        assert drawn == [pytest.approx(one) for one in expected]
    rows = plot_probabilities(np.array([[0.5, 0, 0.5, 0], [0.25, 0.75, 0, 0]]))
    assert sets(rows) == [pytest.approx(one) for one in expected]


def test_large_states_tell_what_the_other_one_has():
    first, second = some_state(9), some_state(9, layers=2)
    ax = plot_probabilities([first, second], top=3)
    labels = [text.get_text() for text in ax.get_xticklabels()]
    for state, heights in zip((first, second), [sets(ax)[0], sets(ax)[2]]):
        assert heights == pytest.approx({label: state.probability(label) for label in labels[:-1]})
    rests = [1 - sum(heights.values()) for heights in (sets(ax)[0], sets(ax)[2])]
    assert labels[-1] == f"others\n{rests[0]:.3g}, {rests[1]:.3g}"


def test_an_order_of_ones_own():
    counts = {"00": 5, "01": 3, "11": 2}
    ax = plot_counts(counts, outcomes=["11", "10", "00"])
    labels, heights = bars(ax)
    assert list(labels.values()) == ["11", "10", "00", "1 other\n3"] and list(heights.values()) == [2, 0, 5, 3]
    ax = plot_probabilities(StateVector(3).h(0).h(1), [1, 0], outcomes=["11", "01"])
    assert list(bars(ax)[0].values()) == ["11", "01", "2 others\n0.5"]
    assert list(bars(plot_probabilities({}, outcomes=["11", "01"]))[0].values()) == ["11", "01"]
    large = some_state(9)
    ax = plot_probabilities(large, outcomes=["000000001", "1" * 9])
    assert list(bars(ax)[1].values())[:2] == pytest.approx([large.probability("000000001"), large.probability("1" * 9)])


def test_standard_errors():
    ax = plot_counts({"0": 36, "1": 64}, errors=True)
    assert list(errors(ax).values()) == [pytest.approx((36, 4.8)), pytest.approx((64, 4.8))]
    ax = plot_probabilities([Counts({"0": 36, "1": 64}), [0.5, 0.5]], errors=True)
    assert list(errors(ax).values()) == [pytest.approx((0.36, 0.048)), pytest.approx((0.64, 0.048))]
    ax = plot_probabilities({"00": 0.25, "11": 0.75}, errors={"11": 0.1})
    assert list(errors(ax).values()) == [pytest.approx((0.75, 0.1))]
    ax = plot_probabilities([[0.5, 0.5], [1, 0]], errors=[[0.1, 0.2], {"0": 0.3}])
    assert sorted(error for _, error in errors(ax).values()) == pytest.approx([0.1, 0.2, 0.3])
    assert not errors(plot_counts({"0": 36, "1": 64})) and not errors(plot_counts({}, errors=True))


def test_eight_sets_have_eight_colours():
    ax = plot_counts([{"0": 1, "1": number + 1} for number in range(8)], labels=[f"set {number}" for number in range(8)])
    assert len({container[0].get_facecolor() for container in ax.containers}) == 8


def test_new_figures_have_the_size_that_was_set():
    with pyplot.rc_context({"figure.figsize": (3.4, 2.4)}):
        assert tuple(plot_counts(some_counts(200, 20)).figure.get_size_inches()) == (3.4, 2.4)
    assert plot_counts({"0": 1}).figure.get_size_inches()[0] == 6.4


# Wrong


@pytest.mark.parametrize(
    ("make", "error", "words"),
    [
        (lambda: plot_counts(5), TypeError, "counts must be a mapping"),
        (lambda: plot_counts({"0": 0.5}), TypeError, "counts['0']"),
        (lambda: plot_counts({"0": 1}, top=0), ValueError, "top must be an integer of at least 1, got 0"),
        (lambda: plot_counts({"0": 1}, top=2.5), TypeError, "top"),
        (lambda: plot_probabilities(5), TypeError, "source must be a StateVector, a mapping"),
        (lambda: plot_probabilities("01"), TypeError, "source must be"),
        (lambda: plot_probabilities([0.5, 0.25, 0.25]), ValueError, "power of two"),
        (lambda: plot_probabilities([[0.5, 0.25, 0.25]]), ValueError, "power of two"),
        (lambda: plot_probabilities(np.zeros((2, 2, 2))), ValueError, "power of two"),
        (lambda: plot_probabilities({"1": -0.5}), ValueError, "no negative probability, got -0.5 for '1'"),
        (lambda: plot_probabilities([1.5, -0.5]), ValueError, "no negative probability"),
        (lambda: plot_probabilities([float("nan"), 0]), ValueError, "finite"),
        (lambda: plot_probabilities({"2": 1.0}), ValueError, "bit strings for keys, got '2'"),
        (lambda: plot_probabilities({"1": "x"}), TypeError, "source['1']"),
        (lambda: plot_probabilities([1.0, 0.0], qubits=[0]), TypeError, "qubits can only be given for a StateVector"),
        (lambda: plot_probabilities(StateVector(2), qubits=[2]), IndexError, "qubits[0]"),
        (lambda: plot_probabilities(StateVector(2), order="up"), ValueError, "order"),
        (lambda: plot_counts([{"0": 1}] * 9), ValueError, "counts must hold from 1 to 8 data sets, got 9"),
        (lambda: plot_probabilities(np.zeros((0, 2))), ValueError, "source must hold from 1 to 8 data sets, got 0"),
        (lambda: plot_counts([{"0": 1}, {"00": 1}]), ValueError, "outcomes must all have the same number of bits, got some of 1 and 2"),
        (lambda: plot_counts([{"0": 1}, 5]), TypeError, "counts must be a mapping"),
        (lambda: plot_counts({"0": 1}, labels=["a", "b"]), ValueError, "labels must be 1 text, one for each data set"),
        (lambda: plot_counts([{"0": 1}] * 2, labels=["a", 2]), ValueError, "labels must be 2 texts"),
        (lambda: plot_counts({"0": 1}, outcomes=["0", "0"]), ValueError, "outcomes must be distinct"),
        (lambda: plot_counts({"0": 1}, outcomes=["0", "00"]), ValueError, "outcomes[1] must be a text of 1 characters"),
        (lambda: plot_counts({"0": 1}, outcomes=[1]), ValueError, "outcomes[0] must be a text"),
        (lambda: plot_counts({"0": 1}, outcomes="01"), TypeError, "outcomes must be a sequence of bit strings"),
        (lambda: plot_counts({"0": 1}, 2, outcomes=["0"]), ValueError, "top cannot be given with outcomes"),
        (lambda: plot_counts({"0": 1}, errors=1), TypeError, "errors must be True or False"),
        (lambda: plot_probabilities([1, 0], errors=True), TypeError, "errors can only be True for Counts"),
        (lambda: plot_probabilities([1, 0], errors=[0.1, -0.1]), ValueError, "errors must hold no negative error"),
        (lambda: plot_probabilities([1, 0], errors=0.1), TypeError, "errors must be a mapping from bit strings, or an array"),
        (lambda: plot_probabilities([{"0": 1}, {"1": 1}], errors=[{}]), ValueError, "errors must hold one item for each of 2"),
        (lambda: plot_probabilities([1, 0], errors=[0.1]), ValueError, "errors must be for outcomes of 1 bits, as the probabilities are, got one for ''"),
        (lambda: plot_probabilities([1, 0], errors=[0.1] * 4), ValueError, "errors must be for outcomes of 1 bits, as the probabilities are, got one for '00'"),
        (
            lambda: plot_probabilities([{"0": 1}, {"1": 1}], errors=[{}, {"01": 0.1}]),
            ValueError,
            "errors[1] must be for outcomes of 1 bits",
        ),
        (lambda: plot_probabilities([{"0": 1}, [1, "x"]]), TypeError, "source[1] must hold numbers"),
        (lambda: plot_probabilities([StateVector(1), [1, 0]], qubits=[0]), TypeError, "qubits can only be given for a StateVector"),
        (lambda: plot_state({"0": 1}), TypeError, "state must be a StateVector or an array"),
        (lambda: plot_state(["a", "b"]), TypeError, "state must hold numbers"),
        (lambda: plot_state([1, 0, 0]), ValueError, "power of two"),
        (lambda: plot_state(StateVector(1), order="up"), ValueError, "order"),
    ],
)
def test_bad_input(make, error, words):
    with pytest.raises(error) as raised:
        make()
    assert words in str(raised.value) and not pyplot.get_fignums()


def test_released_states_are_refused():
    state = StateVector(2)
    state.release()
    for plot in (plot_probabilities, plot_state):
        with pytest.raises(RuntimeError, match="released"):
            plot(state)


@pytest.mark.parametrize("call", ["plot_counts({'0': 1})", "plot_probabilities([1, 0])", "plot_state([1, 0])"])
def test_without_matplotlib(call):
    # A real interpreter in which importing matplotlib fails as it does where it is not installed.
    script = f"import sys; sys.modules['matplotlib'] = None\nfrom velacamplix import *\n{call}"
    ended = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    name = call.partition("(")[0]
    assert ended.stderr.splitlines()[-1] == (
        f"ModuleNotFoundError: {name} needs matplotlib; install it with: pip install matplotlib"
    )


def test_importing_the_package_does_not_import_matplotlib():
    script = "import sys, velacamplix; print('matplotlib' in sys.modules, 'pandas' in sys.modules)"
    assert subprocess.run([sys.executable, "-c", script], capture_output=True, text=True).stdout == "False False\n"


# One set of bars on one axes


DRAWN = {
    "counts": lambda ax: plot_counts({"00": 3, "11": 5}, ax=ax),
    "probabilities": lambda ax: plot_probabilities([0.5, 0.25, 0, 0.25], ax=ax),
    "amplitudes": lambda ax: plot_state(StateVector(2).h(0), ax=ax, legend=False),
    "nothing": lambda ax: plot_counts({}, ax=ax),
    "with a rest": lambda ax: plot_counts({"00": 3, "01": 1, "11": 5}, top=1, ax=ax),
}


@pytest.mark.parametrize("second", DRAWN)
@pytest.mark.parametrize("first", DRAWN)
def test_a_second_set_on_the_same_axes_is_refused(first, second):
    ax = DRAWN[first](pyplot.subplots()[1])
    before = [bar.get_bbox().bounds for bar in ax.patches], [text.get_text() for text in ax.get_xticklabels()]
    figure_axes = len(ax.figure.axes)
    with pytest.raises(ValueError, match=r"ax has bars of outcomes already.*axes of their own.*subplots.*ax\.clear"):
        DRAWN[second](ax)
    assert before == ([bar.get_bbox().bounds for bar in ax.patches], [text.get_text() for text in ax.get_xticklabels()])
    assert len(ax.figure.axes) == figure_axes
    ax.clear()
    DRAWN[second](ax)


def test_axes_that_share_outcomes():
    """Ticks are shared too, so that bars of other outcomes would be labelled wrongly."""
    _, (upper, lower) = pyplot.subplots(2, 1, sharex=True)
    plot_counts({"00": 3, "11": 5}, ax=upper)
    with pytest.raises(ValueError, match="ax shares its x axis with axes that have bars of outcomes already"):
        plot_counts({"00": 3, "01": 5}, ax=lower)
    with pytest.raises(ValueError, match="ax shares its x axis"):
        plot_counts({"00": 3, "01": 5}, ax=upper.twinx())
    plot_probabilities({"00": 0.4, "11": 0.6}, ax=lower)
    assert [text.get_text() for text in lower.get_xticklabels()] == ["00", "11"]


def test_what_others_have_drawn_does_not_matter():
    ax = pyplot.subplots()[1]
    ax.plot([0, 1], [2, 3])
    ax.bar([0, 1], [2, 3])
    assert plot_counts({"00": 3, "11": 5}, ax=ax) is ax
    ax.plot([0, 1], [3, 5])
    _, (left, right) = pyplot.subplots(1, 2, sharey=True)
    plot_counts({"00": 3, "11": 5}, ax=left)
    plot_counts({"0": 3, "1": 5}, ax=right)


def test_something_else_than_axes_is_refused():
    with pytest.raises(TypeError, match="ax must be axes of matplotlib, got 3"):
        plot_counts({"00": 3}, ax=3)
