"""Every example in a docstring gives the output it shows."""

import doctest
import importlib
import pkgutil

import pytest

import velacamplix

MODULES = ["velacamplix"] + [
    module.name
    for module in pkgutil.walk_packages(velacamplix.__path__, "velacamplix.")
    if not module.name.endswith(("__main__", "._core"))
]


# Why a module's examples cannot be looked at: the name of a package that it needs and that is not installed.
LACKING = {}


def examples(name):
    try:
        module = importlib.import_module(name)
    except ModuleNotFoundError as error:
        if str(error.name).startswith("velacamplix"):
            raise
        LACKING[name] = error.name
        return []
    # An example may use what `from velacamplix import ...` offers without saying so each time.
    offered = {word: getattr(velacamplix, word) for word in velacamplix.__all__}
    names = {**offered, "velacamplix": velacamplix, **vars(module)}
    return [test for test in doctest.DocTestFinder().find(module, name, globs=names) if test.examples]


# What an example needs beside the package's own dependencies.
NEEDS = {"velacamplix.counts.Counts.to_frame": "pandas", **{
    f"velacamplix.plotting.plot_{what}": "matplotlib" for what in ("counts", "probabilities", "state")
}}
EXAMPLES = {test.name: test for name in MODULES for test in examples(name)}


@pytest.mark.parametrize("name", EXAMPLES)
def test_examples_show_their_output(name):
    if name in NEEDS:
        pytest.importorskip(NEEDS[name], reason=f"this example needs {NEEDS[name]}: pip install velacamplix[test]")
    runner = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE)
    report = []
    runner.run(EXAMPLES[name], out=report.append)
    assert runner.failures == 0, "".join(report)


@pytest.mark.parametrize("name", MODULES)
def test_every_module_can_be_looked_at(name):
    if name in LACKING:
        pytest.skip(f"{name} needs the package {LACKING[name]}: pip install velacamplix[test]")
    importlib.import_module(name)


def test_the_package_has_examples():
    assert len(EXAMPLES) >= 10
    assert set(NEEDS) <= set(EXAMPLES)
