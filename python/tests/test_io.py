"""Loading, storing, presets, validation and snapshots."""
import pytest

import qdparam
from conftest import EXAMPLES, RAMP


def test_text_and_file_round_trips(tmp_path, pip):
    pip["size"].add_key(3.0, 55.0)
    text = pip.dumps()
    assert qdparam.loads(text).dumps() == text
    assert qdparam.loads(text.encode()).dumps() == text
    path = tmp_path / "set.xml"
    pip.store(path)
    again = qdparam.load(str(path))
    assert again.dumps() == text
    again.clip = pip.clip
    assert again["size"].value(3.0) == 55.0
    with pytest.raises(OSError):
        pip.store(tmp_path / "missing" / "set.xml")


@pytest.mark.parametrize(
    "text, line, column, words",
    [
        ('<Property>\n  <Parameter id="1"\n</Property>', 3, 1, "start element"),
        ("<Property>\n<Parameter id='1'/>\n</Property>\ntext", 3, 12, "outside"),
        ("<Effect/>", 1, 1, "not <Property>"),
        ("", 0, 0, "no element"),
        ('<Property name="é"><Parameter id=1/></Property>', 1, 34, ""),  # characters, not bytes
    ],
)
def test_load_errors_say_where(text, line, column, words):
    with pytest.raises(qdparam.LoadError) as caught:
        qdparam.loads(text)
    error = caught.value
    assert (error.line, error.column, error.file) == (line, column, "")
    assert words in error.message
    assert str(error).endswith(error.message)


def test_missing_file_names_it():
    with pytest.raises(qdparam.LoadError) as caught:
        qdparam.load("/nonexistent/set.xml")
    assert caught.value.file == "/nonexistent/set.xml"
    assert str(caught.value).startswith("/nonexistent/set.xml: ")


def test_lookup(pip):
    assert len(pip) == 9 and [p.id for p in pip] == list(range(1, 10))
    assert pip.param(id=5).name == "opacity" and pip.param("opacity").id == 5
    assert pip.param("nothing") is None and pip.param(id=99) is None
    assert "opacity" in pip and "nothing" not in pip
    with pytest.raises(KeyError):
        pip["nothing"]
    opacity = pip["opacity"]
    assert (opacity.type, opacity.min, opacity.max, opacity.unit) == (qdparam.Type.Double, 0, 100, "%")
    assert pip["border_width"].granularity == 2.0 and pip["caption"].min is None
    assert opacity.attribute("interpolation") == "Hold;Linear"


def test_presets_travel_between_sets():
    source = qdparam.load(EXAMPLES / "pip.xml")
    source["corner_radius"].set_value(30.0)
    target = qdparam.load(EXAMPLES / "pip.xml")
    target.apply(source.preset())
    assert target["corner_radius"].value(0.0) == 30.0
    with pytest.raises(qdparam.LoadError):
        target.apply('<Preset><Value id="1" value="x"')
    assert target["corner_radius"].value(0.0) == 30.0


def test_validation_narrows_limits(pip):
    pip["border_width"].set_value(2.0)
    pip["corner_radius"].set_value(30.0)
    assert pip.validate() is True
    assert pip["corner_radius"].max == 10.0


def test_snapshots_are_independent(pip):
    snap = pip.snapshot()
    pip["opacity"].set_key_value(0, 40.0)
    assert snap["opacity"].value(0.0) == 0.0
    assert pip["opacity"].value(0.0) == 40.0
