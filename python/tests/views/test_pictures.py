"""Pictures of circuits: what is in them, where it stands, and the SVG that is written from it."""

import itertools
import random
from xml.etree import ElementTree

import pytest
from random_circuits import random_circuit

from velacamplix import Circuit, GateDefinition, Instruction, Parameter, Register
from velacamplix.instructions.gates import GATES
from velacamplix.views import shapes
from velacamplix.views.layout import MOST_COLUMNS
from velacamplix.views.shapes import Box, Circle, Frame, Line, Text

BELL = GateDefinition("bell", Circuit(2).h(0).cx(0, 1))


def pictured(circuit, width=600.0, idle=True):
    return shapes.picture(circuit.n_qubits, circuit.registers, circuit.instructions, width, idle)


def of(kind, picture):
    return [shape for shape in picture.shapes if isinstance(shape, kind)]


def extent(shape):
    """Left, top, right, bottom."""
    if isinstance(shape, Line):
        return min(shape.x0, shape.x1), min(shape.y0, shape.y1), max(shape.x0, shape.x1), max(shape.y0, shape.y1)
    if isinstance(shape, (Box, Frame)):
        return shape.left, shape.top, shape.left + shape.width, shape.top + shape.height
    if isinstance(shape, Circle):
        return shape.x - shape.radius, shape.y - shape.radius, shape.x + shape.radius, shape.y + shape.radius
    left = shape.x - {"start": 0, "middle": 0.5, "end": 1}[shape.anchor] * shape.width
    return left, shape.y - shape.size / 2, left + shape.width, shape.y + shape.size / 2


def overlap(one, two):
    slack = 1e-6  # of rounding, where one ends and the other begins
    (left, top, right, bottom), (left2, top2, right2, bottom2) = extent(one), extent(two)
    return left + slack < right2 and left2 + slack < right and top + slack < bottom2 and top2 + slack < bottom


def inside(one, two):
    (left, top, right, bottom), (left2, top2, right2, bottom2) = extent(one), extent(two)
    return left2 <= left and top2 <= top and right <= right2 and bottom <= bottom2


def require_order(picture):
    """Nothing lies upon anything it should not, or beyond the edge."""
    boxes, texts, lines = of(Box, picture), of(Text, picture), of(Line, picture)
    for shape in picture.shapes:
        left, top, right, bottom = extent(shape)
        assert 0 <= left and 0 <= top and right <= picture.width and bottom <= picture.height, shape
    for one, two in itertools.combinations(boxes, 2):
        assert not overlap(one, two), (one, two)
    for one, two in itertools.combinations(texts, 2):
        assert not overlap(one, two), (one, two)
    for box in boxes:
        assert all(inside(text, box) or not overlap(text, box) for text in texts), box
        assert not any(overlap(line, box) for line in lines if line.kind in ("link", "wire", "barrier")), box


def everything(n_qubits):
    """A circuit with a bit of everything, on 3 qubits and more."""
    last = n_qubits - 1
    circuit = Circuit(n_qubits, 4).h(0).cx(0, last).rx(Parameter("theta"), 1, controls=[0]).barrier()
    circuit.gate(BELL, [2, 0]).gate(BELL, [last - 1, last], controls=0).rzz(0.25, 1, 2).swap(0, last).cz(1, last)
    circuit.ccx(0, 1, last).u3(0.1, 0.2, 0.3, 2).matrix([[1, 0], [0, 1]], [1]).measure([0, 1], [2, 0]).reset(1)
    with circuit.when("c", 2):
        circuit.x(0)
    with circuit.when([0, 2], "10"):
        circuit.cx(1, last)
    with circuit.when(0, 1):
        circuit.gate(BELL, [last, last - 1]).swap(0, 1)
    return circuit


# What is in it


def test_a_small_circuit():
    picture = pictured(Circuit(3, 1).h(0).cx(0, 2).measure(2, 0))
    assert [text.text for text in of(Text, picture)] == ["H", "c[0]", "q[0]", "q[1]", "q[2]"]
    assert [box.kind for box in of(Box, picture)] == ["gate", "other"]
    assert [circle.kind for circle in of(Circle, picture)] == ["dot", "ring", "arc"]
    first, second, third = [text.y for text in of(Text, picture)[-3:]]
    assert third - second == second - first > 0
    [link] = [line for line in of(Line, picture) if line.kind == "link"]
    dot, ring, _ = of(Circle, picture)
    assert (link.x0, link.y0, link.x1, link.y1) == (dot.x, first, ring.x, third) and dot.x == ring.x


def test_boxes_on_neighbouring_lines_are_one():
    picture = pictured(Circuit(3).gate(BELL, [2, 1]).gate(BELL, [0, 2]))
    large, upper, lower = of(Box, picture)
    assert {box.kind for box in (large, upper, lower)} == {"definition"}
    assert large.height > 2 * upper.height and upper.height == lower.height
    texts = [(text.text, text.y) for text in of(Text, picture) if text.text != "bell"]
    lines = {text: y for text, y in texts if text.startswith("q")}
    numbers = [(text, y) for text, y in texts if not text.startswith("q")]
    assert numbers == [("1", lines["q[1]"]), ("0", lines["q[2]"]), ("0", lines["q[0]"]), ("1", lines["q[2]"])]
    [link] = [line for line in of(Line, picture) if line.kind == "link"]
    assert (link.y0, link.y1) == (upper.top + upper.height, lower.top)


def test_a_hidden_line_between_two_does_not_part_a_box():
    circuit = Circuit(3).rzz(0.5, 0, 2)
    assert len(of(Box, pictured(circuit))) == 2 and len(of(Box, pictured(circuit, idle=False))) == 1


def test_conditions_stand_below_the_name():
    circuit = Circuit(2, 2).measure([0, 1], [0, 1])
    with circuit.when("c", 2):
        circuit.x(0).cx(0, 1)
    texts = of(Text, pictured(circuit))
    names = [text for text in texts if text.text == "X"]
    conditions = [text for text in texts if text.text == "if c==2"]
    assert len(names) == len(conditions) == 2
    assert all(name.x == when.x and name.y < when.y for name, when in zip(names, conditions))


@pytest.mark.parametrize("n_qubits", [3, 5, 30])
@pytest.mark.parametrize("width", [220.0, 245.0, 460.0, 2000.0])
def test_nothing_lies_upon_anything(n_qubits, width):
    picture = pictured(everything(n_qubits), width)
    require_order(picture)
    assert picture.width <= width


@pytest.mark.parametrize("seed", range(6))
def test_nothing_lies_upon_anything_in_random_circuits(seed):
    circuit = random_circuit(seed)
    for width in (300.0, 600.0):
        picture = pictured(circuit, width)
        require_order(picture)
        assert picture.width <= width
        written = [text.text for text in of(Text, picture)]
        measured = sum(len(step.qubits) for step in circuit if step.name == "measure")
        assert len([circle for circle in of(Circle, picture) if circle.kind == "arc"]) == measured
        rows = written.count("q[0]")
        assert rows >= 1 and all(written.count(f"q[{q}]") == rows for q in range(circuit.n_qubits))


def test_every_gate_can_be_drawn():
    draw = random.Random(1)
    for name, shape in GATES.items():
        for n_controls in (0, 1, 2):
            qubits = draw.sample(range(6), shape.n_qubits + n_controls)
            step = Instruction(name, tuple(qubits[n_controls:]), (0.5,) * shape.n_params, tuple(qubits[:n_controls]))
            picture = pictured(Circuit(6).append(step))
            require_order(picture)
            middles = {text.y for text in of(Text, picture) if text.text in {f"q[{q}]" for q in qubits}}
            for y in middles:
                marks = [s for s in picture.shapes if isinstance(s, (Box, Circle)) or getattr(s, "kind", "") == "symbol"]
                assert any(extent(mark)[1] <= y <= extent(mark)[3] for mark in marks), (name, qubits)


def test_a_wide_circuit_goes_on_below():
    circuit = Circuit(2)
    for _ in range(30):
        circuit.h(0).cx(0, 1)
    one, several = pictured(circuit, 5000.0), pictured(circuit, 250.0)
    n_blocks = [text.text for text in of(Text, several)].count("q[1]")
    assert n_blocks > 3 and len(of(Box, one)) == len(of(Box, several)) == 30
    assert several.height == pytest.approx(n_blocks * one.height, rel=0.3)
    ends = sorted({line.x1 for line in of(Line, several) if line.kind == "wire"})
    assert several.width - ends[-1] < 5  # all but the last reach the edge


@pytest.mark.parametrize("n_qubits", [1, 400])
def test_what_does_not_fit_is_counted(n_qubits):
    circuit = Circuit(n_qubits)
    for _ in range(MOST_COLUMNS + 5):
        circuit.h(0)
    picture = pictured(circuit, 400.0)
    [note] = [text.text for text in of(Text, picture) if "more" in text.text]
    n_drawn = len(of(Box, picture))
    assert note == f"({len(circuit) - n_drawn} more instructions)" and 5 < n_drawn < len(circuit)
    assert picture.height <= shapes.MOST_HEIGHT


def test_too_many_lines_are_refused():
    circuit = Circuit(501).h(500)
    with pytest.raises(ValueError, match=r"at most 500 qubits for a picture, got 501.*idle=False.*writes text"):
        circuit.draw("svg")
    assert "q[500]" in circuit.draw("svg", idle=False)


def test_circuits_without_anything():
    for circuit in (Circuit(0), Circuit(2), Circuit(0, 3)):
        require_order(pictured(circuit))
        assert ElementTree.fromstring(circuit.draw("svg")).get("width") != "0"


# Decisions and loops


def decisions():
    circuit = Circuit(4, 3).h(0).cx(0, 1).measure([0, 1], [0, 1])
    circuit.if_((0, 1), lambda body: body.x(2).h(3), lambda body: body.if_((1, 1), lambda inner: inner.z(2).cx(2, 3)).y(3))
    circuit.while_((2, 0), lambda body: body.h(3).measure(3, 2))
    return circuit.switch([0, 1], {0: lambda body: body.x(0), (1, 2): lambda body: body.cx(0, 2)}, lambda body: body.z(1))


def test_bodies_stand_in_frames_between_their_heads():
    picture = pictured(decisions(), 5000.0)
    require_order(picture)
    words = ["if c[0]==1", "else", "if c[1]==1", "while c[2]==0", "switch c[0],c[1]: 0", "1, 2", "default"]
    heads = {text.text: text for text in of(Text, picture) if text.text in words}
    assert set(heads) == set(words) and not any("{" in text.text or "}" in text.text for text in of(Text, picture))
    frames = of(Frame, picture)
    assert len(frames) == len(words) and picture.shapes[: len(frames)] == frames
    boxes = {word: next(box for box in of(Box, picture) if inside(heads[word], box)) for word in words}
    # A frame begins where the box of its head ends, and is a little higher.
    for word in words:
        [frame] = [frame for frame in frames if frame.left == pytest.approx(boxes[word].left + boxes[word].width)]
        assert frame.top < boxes[word].top and frame.top + frame.height > boxes[word].top + boxes[word].height
        begun = [one for one in of(Text, picture) if inside(one, frame)]
        expected = {
            "if c[0]==1": {"X", "H"}, "else": {"if c[1]==1", "Z", "Y"}, "if c[1]==1": {"Z"}, "while c[2]==0": {"H", "c[2]"},
            "switch c[0],c[1]: 0": {"X"}, "1, 2": set(), "default": {"Z"},
        }  # fmt: skip
        assert {text.text for text in begun} == expected[word]
    outer, inner = [frame for frame in frames if inside(boxes["if c[1]==1"], frame) or frame.left > boxes["if c[1]==1"].left][:2]
    assert outer.width * outer.height >= inner.width * inner.height


@pytest.mark.parametrize("width", [230.0, 300.0])
def test_frames_go_on_below(width):
    picture = pictured(decisions(), width)
    require_order(picture)
    edge = max(line.x1 for line in of(Line, picture) if line.kind == "wire")
    start = min(line.x0 for line in of(Line, picture) if line.kind == "wire")
    ended = [frame for frame in of(Frame, picture) if frame.left + frame.width == pytest.approx(edge)]
    assert ended and len([frame for frame in of(Frame, picture) if frame.left == start]) == len(ended)


def test_frames_are_dashed_in_svg():
    page = ElementTree.fromstring(decisions().draw("svg"))
    [group] = [group for group in page.iter(f"{SVG}g") if group.get("stroke-dasharray")]
    assert len(group) == len(of(Frame, pictured(decisions())))


# As SVG

SVG = "{http://www.w3.org/2000/svg}"


@pytest.mark.parametrize("n_qubits", [3, 5, 30])
@pytest.mark.parametrize("width", [None, 330, 900])
def test_svg_has_everything(n_qubits, width):
    circuit = everything(n_qubits)
    drawing = circuit.draw("svg", width=width)
    page = ElementTree.fromstring(drawing)
    picture = pictured(circuit, (width or 900) / 1.5)
    assert ["".join(element.itertext()) for element in page.iter(f"{SVG}text")] == [text.text for text in of(Text, picture)]
    boxes = [[float(element.get(name)) for name in ("x", "y", "width", "height")] for element in page.iter(f"{SVG}rect")]
    drawn = [pytest.approx(box[:4], abs=0.01) for kind in ("gate", "definition", "other") for box in of(Box, picture) if box.kind == kind]
    assert boxes == drawn
    assert float(page.get("width")) == pytest.approx(1.5 * picture.width, abs=0.01) and float(page.get("width")) <= (width or 900)
    assert page.get("viewBox").split() == [f"{round(side, 2):g}" for side in (0, 0, picture.width, picture.height)]
    assert page.get("role") == "img" and page.get("aria-label") == f"circuit of {n_qubits} qubits"


def test_svg_is_the_same_each_time():
    assert everything(5).draw("svg") == everything(5).draw("svg") == everything(5).copy().draw("svg")


def test_svg_takes_any_name():
    for odd in ("</text><script>", "a&b", "\"'", "x\x00y", "two\nlines", "\ud800", "größe", "量子", "\U0001f600"):
        circuit = Circuit(1, registers=[Register(odd, "quantum", 0, 1)]).gate(GateDefinition(odd, Circuit(1)), 0)
        drawing = circuit.rx(Parameter(odd), 0).draw("svg")
        assert drawing.isascii()
        shown = "".join(letter if letter.isprintable() else "?" for letter in odd)
        texts = ["".join(element.itertext()) for element in ElementTree.fromstring(drawing).iter(f"{SVG}text")]
        assert texts == [shown, f"RX({shown})", f"{shown}[0]"]
        assert len(circuit.draw().splitlines()) == 1


def test_svg_shows_itself_in_notebooks():
    drawing = Circuit(1).h(0).draw("svg")
    assert isinstance(drawing, str) and drawing._repr_svg_() == drawing
    assert ElementTree.fromstring(drawing._repr_html_()).find(f"{SVG}svg") is not None
    assert repr(drawing) == f"<SVG drawing of {len(drawing)} characters>"


def test_svg_takes_its_colour_from_the_page():
    drawing = everything(3).draw("svg")
    page = ElementTree.fromstring(drawing)
    inks = {element.get(name) for element in page.iter() for name in ("stroke", "fill")} - {None}
    assert inks == {"currentColor", "none", "#56b4e9", "#e69f00", "#999999"}
    # The fills let the page shine through; only a file of its own has a background.
    assert all(group.get("fill-opacity") for group in page.iter() if (group.get("fill") or "").startswith("#"))
    assert page.find(f"{SVG}style").text.startswith("svg:root{")


@pytest.mark.parametrize(
    ("arguments", "options", "error", "words"),
    [
        (("png",), {}, ValueError, "form must be 'text' or 'svg', got 'png'"),
        ((3.5,), {}, TypeError, "width must be an integer"),
        ((60,), {"width": 60}, TypeError, "width must be given once"),
        (("svg",), {"width": 299}, ValueError, "width must be an integer of at least 300"),
        (("svg",), {"ascii": True}, ValueError, "ascii must be False"),
        (("svg",), {"idle": 1}, TypeError, "idle must be True or False"),
    ],
)
def test_refused(arguments, options, error, words):
    with pytest.raises(error) as raised:
        Circuit(1).h(0).draw(*arguments, **options)
    assert words in str(raised.value)


def test_a_width_may_come_first():
    circuit = everything(5)
    assert circuit.draw(60) == circuit.draw(width=60) == circuit.draw("text", width=60)
