"""Keyframes as objects, edits through the parameter, refused edits."""
import math

import pytest

import qdparam
from qdparam import Ease, Interpolation


def test_keys_are_objects_in_time_order(pip):
    keys = pip["position_x"].keys
    assert [(k.index, k.time, k.position, k.text) for k in keys] == [
        (0, 0.0, "0", "80"), (1, 4.0, "4s", "20"), (2, 8.0, "8s", "75")]
    assert keys[1].interpolation == Interpolation.Bezier and keys[1].value == 20.0
    assert keys[1].anchors == [(0.1, 0.0), (-0.1, 12.0)]
    assert pip["opacity"].keys[0].ease == Ease.InOut
    assert "Bezier" in repr(keys[1])


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
    p.remove_key(2)
    assert p.add_key(5.0, 10.0, Interpolation.Hold) == 1
    assert p.value(7.0) == 10.0
    ramp["steps"].set_value(6.4)
    assert ramp["steps"].value(0.0) == 6.0
    ramp["title"].set_text("Grüße, 世界")
    assert ramp["title"].text(0.0) == "Grüße, 世界"


@pytest.mark.parametrize(
    "ease, bits",
    [(Ease.InOut, 1), ("EaseIn", 4), ("out", 8), (Ease.In | Ease.Out, 12), ("In|Out", 12), ("None", 0)],
)
def test_eases_by_enum_name_or_bits(ramp, ease, bits):
    ramp["ramp"].set_key_ease(0, ease)
    assert int(ramp["ramp"].keys[0].ease) == bits


@pytest.mark.parametrize(
    "method, args, error",
    [
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
        ("set_value", (math.inf,), ValueError),
        ("set_text", ("text",), ValueError),  # not a String parameter
        ("set_key_value", ("5",), TypeError),
    ],
)
def test_refused_edits_change_nothing(ramp, method, args, error):
    before = ramp.dumps()
    with pytest.raises(error):
        getattr(ramp["ramp"], method)(*args)
    assert ramp.dumps() == before


def test_stale_handles_raise_reference_error(pip):
    before = pip["corner_radius"]
    pip.apply(pip.preset())  # applying replaces the parameters
    assert not before.valid and "no longer" in repr(before)
    for call in (lambda: before.value(0.0), lambda: before.values([0.0]), lambda: before.keys,
                 lambda: before.set_value(1.0)):
        with pytest.raises(ReferenceError):
            call()
    assert pip["corner_radius"].valid


def test_insert_key_leaves_the_curve_as_it_was(pip):
    x = pip["position_x"]  # a Bezier segment from 4 s to 8 s
    times = [4.0 + i * 0.04 for i in range(101)]
    before = x.values(times)
    assert x.insert_key(5.0) == 2
    assert len(x.keys) == 4 and x.keys[2].time == pytest.approx(5.0)
    assert max(abs(a - b) for a, b in zip(before, x.values(times))) < 1e-9
    with pytest.raises(ValueError):
        x.insert_key(math.nan)


def recorded(frames):
    keys = "".join(
        f'<Keyframe position="{i / (frames - 1)!r}" value="{math.sin(i * 0.05)!r}" '
        'interpolation="Linear"/>'
        for i in range(frames)
    )
    return qdparam.loads(
        f'<Property><Parameter id="1" name="wave" value="0" useKeyframe="True">{keys}'
        '</Parameter></Property>'
    )


@pytest.mark.parametrize("shape, most", [("Linear", 100), (Interpolation.Bezier, 30)])
def test_simplify_thins_a_recorded_curve_within_the_tolerance(shape, most):
    s = recorded(500)
    s.clip = (0.0, 20.0)
    wave = s["wave"]
    before = wave.values(start=0.0, step=0.01, count=2001)
    report = wave.simplify(0.01, shape)
    assert (report.keys_before, report.keys_after) == (500, len(wave.keys))
    assert report.keys_after < most and report.max_deviation <= 0.01
    after = wave.values(start=0.0, step=0.01, count=2001)
    assert max(abs(a - b) for a, b in zip(before, after)) <= 0.0101
    assert "500 -> " in repr(report)


@pytest.mark.parametrize(
    "name, args", [("steps", (0.1,)), ("ramp", (-1.0,)), ("ramp", (math.nan,)), ("ramp", (0.1, "Spline"))]
)
def test_simplify_refuses_and_changes_nothing(ramp, name, args):
    before = ramp.dumps()
    with pytest.raises(ValueError):
        ramp[name].simplify(*args)
    assert ramp.dumps() == before


def test_extrapolation_repeats_the_keyed_span_and_is_stored(ramp):
    p = ramp["ramp"]
    assert p.extrapolation == (qdparam.Extrapolation.Hold, qdparam.Extrapolation.Hold)
    ramp.clip = (0.0, 5.0)
    p.set_extrapolation("Linear", qdparam.Extrapolation.Oscillate)
    assert p.extrapolation == (qdparam.Extrapolation.Linear, qdparam.Extrapolation.Oscillate)
    assert (p.value(-1.0), p.slope(-1.0)) == (-20.0, 20.0)  # the ramp's slope goes on
    assert p.value(6.0) == pytest.approx(80.0)  # back down, a second after the last key
    assert 'extrapolateAfter="Oscillate"' in ramp.dumps()
    with pytest.raises(ValueError):
        p.set_extrapolation("Sideways", "Hold")
    p.set_extrapolation("Hold", "Hold")
    assert "extrapolate" not in ramp.dumps()
