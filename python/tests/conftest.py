import os
import pathlib

import pytest

import qdparam

EXAMPLES = pathlib.Path(
    os.environ.get("QD_EXAMPLES_DIR", pathlib.Path(__file__).resolve().parents[2] / "examples")
)

# A ramp from 0 to 100 over the clip, and a whole number beside it.
RAMP = """<Property>
  <Parameter id="1" name="ramp" value="0" useKeyframe="True">
    <Keyframe position="0" value="0" interpolation="Linear"/>
    <Keyframe position="1" value="100" interpolation="Hold"/>
  </Parameter>
  <Parameter id="2" name="steps" type="Long" value="3"/>
  <Parameter id="3" name="title" type="String" value="Hello"/>
</Property>"""


@pytest.fixture
def pip():
    s = qdparam.load(EXAMPLES / "pip.xml")
    s.clip = (0.0, 10.0)
    return s


@pytest.fixture
def ramp():
    s = qdparam.loads(RAMP)
    s.clip = (0.0, 10.0)
    return s
