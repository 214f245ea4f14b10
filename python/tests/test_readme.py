"""The README's Python code runs as written."""
import pathlib
import re

from conftest import EXAMPLES

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"


def test_readme_python_blocks_run(tmp_path, monkeypatch, capsys):
    blocks = re.findall(r"```python\n(.*?)\n```", README.read_text(encoding="utf-8"), re.S)
    assert blocks
    monkeypatch.chdir(tmp_path)
    for code in blocks:
        exec(code.replace("examples/pip.xml", str(EXAMPLES / "pip.xml")), {})
    assert (tmp_path / "pip-edited.xml").exists()
