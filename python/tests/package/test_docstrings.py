"""Every example in a docstring gives the output it shows."""

import doctest
import importlib
import inspect
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


class Finder(doctest.DocTestFinder):
    """Finds examples in the file they stand in, whatever a public class says about where it is."""

    def _from_module(self, module, item):
        if inspect.isfunction(item):
            return item.__globals__ is vars(module)
        home = getattr(item, "__module__", None)
        if home == "velacamplix" and inspect.isclass(item):
            # With methods, or else the decorated kind, whose fields have the examples.
            functions = [value for value in vars(item).values() if inspect.isfunction(value)]
            return any(value.__code__.co_filename == module.__file__ for value in functions)
        return super()._from_module(module, item)


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
    return [test for test in Finder().find(module, name, globs=names) if test.examples]


# What an example needs beside the package's own dependencies.
EXAMPLES = {test.name: test for name in MODULES for test in examples(name)}
NEEDS = {f"velacamplix.{name}.to_frame": "pandas" for name in ("results.counts.Counts", "running.result.Result")}
NEEDS.update({name: "matplotlib" for name in EXAMPLES if name.startswith("velacamplix.plots.")})


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
        pytest.skip(f"{name} needs the package {LACKING[name]}, which is not installed: pip install {LACKING[name]}")
    importlib.import_module(name)


def test_the_package_has_examples():
    assert len(EXAMPLES) >= 10
    assert set(NEEDS) <= set(EXAMPLES)
