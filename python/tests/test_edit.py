"""Keyframes as objects, edits through the parameter, refused edits."""
import math

import pytest

import qdparam
from qdparam import Ease, Interpolation


def test_keys_in_time_order_with_their_stored_index():
    s = qdparam.loads(
        """<Property><Parameter id="1" name="p" useKeyframe="True">
      <Keyframe position="0.5" value="5" interpolation="Bezier" timeTranslation="EaseIn">
        <Anchor position="0.1" value="2"/></Keyframe>
      <Keyframe position="0" value="1" interpolation="Linear"/>
      <Keyframe position="0.75s" value="3"/></Parameter></Property>"""
    )
    keys = s["p"].keys
    assert [k.index for k in keys] == [1, 0, 2]
    middle = keys[1]
    assert (middle.time, middle.position, middle.value, middle.text) == (0.5, "0.5", 5.0, "5")
    assert middle.interpolation == Interpolation.Bezier
    assert middle.ease == Ease.In
    assert middle.anchors == [(0.1, 2.0)]
    assert "Bezier" in repr(middle)


def test_edits_keep_time_order_and_the_curve(ramp):
    p = ramp["ramp"]
    assert p.add_key(2.5) == 1  # takes the curve's value: nothing moves
    assert (p.value(2.5), p.value(6.0)) == (25.0, 60.0)
    assert p.move_key(1, 12.0) == 2
    assert p.keys[-1].time == 12.0
    p.set_key_value(0, 50.0)
    assert p.value(5.0) == 75.0
    p.set_key_interpolation(0, "hold")
    assert p.value(5.0) == 50.0
    p.set_key_interpolation(0, Interpolation.Linear)
    p.remove_key(2)
    assert len(p.keys) == 2
    assert p.add_key(5.0, 10.0, Interpolation.Hold) == 1
    assert p.value(7.0) == 10.0


@pytest.mark.parametrize(
    "ease, expected",
    [
        (Ease.InOut, Ease.InOut),
        ("EaseIn", Ease.In),
        ("out", Ease.Out),
        (Ease.In | Ease.Out, 12),
        ("In|Out", 12),
        ("None", Ease.Linear),
    ],
)
def test_eases_by_enum_name_or_bits(ramp, ease, expected):
    p = ramp["ramp"]
    p.set_key_ease(0, ease)
    assert int(p.keys[0].ease) == int(expected)


def test_static_values_and_text(ramp):
    steps = ramp["steps"]
    steps.set_value(6.4)
    assert steps.value(0.0) == 6.0
    ramp["title"].set_text("Grüße, 世界")
    assert ramp["title"].text(0.0) == "Grüße, 世界"
    assert "Grüße" in ramp.dumps()


REFUSED = [
    ("remove_key", (7,), ValueError),
    ("remove_key", (-1,), ValueError),
    ("move_key", (2**40, 1.0), ValueError),
    ("set_key_interpolation", (0, Interpolation.LinLog), ValueError),  # not allowed
    ("set_key_interpolation", (0, "Wobbly"), ValueError),
    ("set_key_interpolation", (0, 3), TypeError),
    ("set_key_ease", (0, "Sideways"), ValueError),
    ("set_key_ease", (0, 99), ValueError),
    ("set_key_ease", (0, 2.5), TypeError),
    ("add_key", (math.nan,), ValueError),
    ("add_key", (None,), TypeError),
    ("move_key", (0, math.nan), ValueError),
    ("set_value", (math.inf,), ValueError),
    ("set_text", ("text",), ValueError),  # not a String parameter
    ("set_key_value", ("5",), TypeError),
]


@pytest.mark.parametrize("method, args, error", REFUSED)
def test_refused_edits_change_nothing(ramp, method, args, error):
    p = ramp["ramp"]
    before = ramp.dumps()
    with pytest.raises(error):
        getattr(p, method)(*args)
    assert ramp.dumps() == before


def test_long_refuses_what_it_cannot_hold(ramp):
    with pytest.raises(ValueError):
        ramp["steps"].set_value(1e12)


def test_stale_handles_raise_reference_error(pip):
    before = pip["corner_radius"]
    pip.apply(pip.preset())  # applying replaces the parameters
    assert not before.valid
    assert "no longer" in repr(before)
    for call in (
        lambda: before.value(0.0),
        lambda: before.values([0.0]),
        lambda: before.name,
        lambda: before.keys,
        lambda: before.set_value(1.0),
    ):
        with pytest.raises(ReferenceError):
            call()
    assert pip["corner_radius"].valid
