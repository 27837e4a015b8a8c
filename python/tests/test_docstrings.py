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


def examples(name):
    try:
        module = importlib.import_module(name)
    except ModuleNotFoundError as error:
        if str(error.name).startswith("velacamplix"):
            raise
        pytest.skip(f"{name} needs the package {error.name}")
    # An example may use what `from velacamplix import ...` offers without saying so each time.
    offered = {word: getattr(velacamplix, word) for word in velacamplix.__all__}
    names = {**offered, "velacamplix": velacamplix, **vars(module)}
    return [test for test in doctest.DocTestFinder().find(module, name, globs=names) if test.examples]


@pytest.mark.parametrize("name", MODULES)
def test_examples_show_their_output(name):
    runner = doctest.DocTestRunner(optionflags=doctest.NORMALIZE_WHITESPACE)
    report = []
    for test in examples(name):
        runner.run(test, out=report.append)
    assert runner.failures == 0, "".join(report)


def test_the_package_has_examples():
    assert sum(len(examples(name)) for name in MODULES if ".qasm." not in name) >= 10
