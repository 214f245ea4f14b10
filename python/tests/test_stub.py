"""The stub names what the module has, so that editors complete every call."""
import ast
import pathlib

import qdparam

STUB = pathlib.Path(__file__).resolve().parents[1] / "qdparam.pyi"


def public(names):
    return {n for n in names if not n.startswith("_")}


def test_stub_and_module_name_the_same_things():
    tree = ast.parse(STUB.read_text(encoding="utf-8"))
    top = {n.name for n in tree.body if isinstance(n, (ast.ClassDef, ast.FunctionDef))}
    assert public(top) == public(dir(qdparam)) - {"annotations"}
    for cls in (n for n in tree.body if isinstance(n, ast.ClassDef) and n.name != "LoadError"):
        stubbed = {n.name for n in cls.body if isinstance(n, ast.FunctionDef)}
        stubbed |= {t.id for n in cls.body if isinstance(n, ast.Assign) for t in n.targets}
        real = public(dir(getattr(qdparam, cls.name)))
        if any(getattr(base, "attr", "") == "Enum" for base in cls.bases):
            real -= {"name", "value"}  # enum.Enum has them
        assert public(stubbed) == real, cls.name
