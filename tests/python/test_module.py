"""The package as editors and help() see it: the extension's stubs match what it defines, and
every public name is documented."""

from __future__ import annotations

import ast
import inspect
from pathlib import Path

import pytest

from conftest import pelmo

_pelmo = pelmo._pelmo


def stub_names() -> dict[str, set[str]]:
    """Top-level names of _pelmo.pyi, and the members of each class it declares."""
    tree = ast.parse((Path(pelmo.__file__).parent / "_pelmo.pyi").read_text())
    names: dict[str, set[str]] = {"": set()}
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            names[""].add(node.name)
            names[node.name] = {item.name for item in node.body if isinstance(item, ast.FunctionDef)}
        elif isinstance(node, ast.FunctionDef):
            names[""].add(node.name)
        elif isinstance(node, ast.AnnAssign):
            names[""].add(node.target.id)
    return names


def public(names) -> set[str]:
    return {name for name in names if not name.startswith("_") or name == "__init__"}


def test_stubs_match_the_extension():
    stubs = stub_names()
    assert stubs.pop("") == public(vars(_pelmo))
    for cls, members in stubs.items():
        defined = public(vars(getattr(_pelmo, cls))) - {"__init__"}
        assert members - {"__init__"} == defined, cls


# The public names that are classes and functions (not constants or type aliases).
DOCUMENTED = [getattr(pelmo, name) for name in pelmo.__all__
              if not name.isupper() and name not in ("ImageLike", "Progress")]


@pytest.mark.parametrize("item", DOCUMENTED, ids=lambda item: getattr(item, "__name__", str(item)))
def test_public_names_have_docstrings(item):
    assert inspect.getdoc(item)
    if inspect.isclass(item):
        for name, member in vars(item).items():
            if not name.startswith("_") and (callable(member) or isinstance(member, (property, classmethod))):
                assert inspect.getdoc(member), f"{item.__name__}.{name}"
