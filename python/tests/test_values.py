"""Values one at a time and as arrays: the same bits either way."""
import math

import numpy as np
import pytest

import qdparam
from conftest import EXAMPLES


def numeric(s):
    return [p for p in s if p.value(0.0) is not None]


@pytest.mark.parametrize("name", ["pip.xml", "colorgrade.xml"])
def test_arrays_are_single_values_bit_for_bit(name):
    s = qdparam.load(EXAMPLES / name)
    s.clip = (1.0, 12.0)
    times = np.linspace(-1.0, 14.0, 3001)
    params = numeric(s)
    assert params
    for p in params:
        single = np.array([p.value(t) for t in times])
        np.testing.assert_array_equal(p.values(times), single, err_msg=p.name)
        stepped = p.values(start=-1.0, step=0.005, count=3001)
        np.testing.assert_array_equal(
            stepped, [p.value(-1.0 + i * 0.005) for i in range(3001)], err_msg=p.name
        )


def test_frames_at_ntsc_rate_are_exact_frame_times(pip):
    size = pip["size"]
    first, count = 17, 280
    expected = [size.value(n * 1001 / 30000) for n in range(first, first + count)]
    for rate in ("30000/1001", (30000, 1001)):
        got = size.frames(rate, first=first, count=count)
        assert got.dtype == np.float64
        np.testing.assert_array_equal(got, expected)
    np.testing.assert_array_equal(size.frames(25, count=3), [size.value(n / 25) for n in range(3)])


@pytest.mark.parametrize(
    "times",
    [
        [0.0, 2.5, 5.0],
        (0, 2, 5),
        np.array([0, 2, 5], dtype=np.int32),
        np.array([0.0, 2.5, 5.0], dtype=np.float32),
        np.arange(12.0)[::4],  # not contiguous
        [],
    ],
)
def test_any_one_dimensional_array_like(ramp, times):
    p = ramp["ramp"]
    got = p.values(times)
    assert got.dtype == np.float64 and got.shape == (len(times),)
    np.testing.assert_array_equal(got, [p.value(float(t)) for t in np.asarray(times, np.float64)])


def test_what_each_type_answers(ramp):
    assert ramp["steps"].value(1.0) == 3.0
    title = ramp["title"]
    assert (title.value(1.0), title.values([1.0]), title.frames(25, count=4)) == (None,) * 3
    assert (title.text(1.0), ramp["ramp"].text(1.0), title.integral(1.0)) == ("Hello", None, None)
    assert ramp["ramp"].integral(10.0) == pytest.approx(500.0)


def test_slope_is_units_per_second_on_the_set_time_line(ramp):
    p = ramp["ramp"]
    assert (p.slope(5.0), p.slope(0.0), p.slope(10.0), p.slope(-1.0)) == (10.0, 10.0, 0.0, 0.0)
    ramp.clip = (10.0, 20.0)  # twice as long, later: half the slope
    assert p.slope(20.0) == pytest.approx(5.0)
    assert (ramp["steps"].slope(1.0), ramp["title"].slope(1.0)) == (0.0, None)


def test_clip_moves_and_stretches_the_curve(ramp):
    p = ramp["ramp"]
    assert p.value(5.0) == 50.0
    ramp.clip = (10.0, 20.0)
    assert (ramp.start, ramp.duration) == (10.0, 20.0)
    assert p.value(20.0) == 50.0
    ramp.set_clip(0.0, 4.0)
    assert p.value(1.0) == 25.0


def test_nan_and_infinite_times_answer_as_single_values_do(ramp):
    p = ramp["ramp"]
    odd = [math.nan, math.inf, -math.inf, 1e308]
    np.testing.assert_array_equal(p.values(odd), [p.value(t) for t in odd])


def test_find_and_path_on_a_short_clip():
    s = qdparam.load(EXAMPLES / "pip.xml")
    s.clip = (0.0, 4.0)
    opacity, x, y = s["opacity"], s["position_x"], s["position_y"]
    halves = opacity.find_all(50.0)
    assert len(halves) == 2
    assert opacity.find(50.0) == halves[0]
    assert opacity.find(50.0, after=halves[0] + 0.01) == halves[1]
    assert abs(opacity.value(halves[0]) - 50.0) < 1e-9
    assert opacity.find(500.0) is None
    with pytest.raises(ValueError):
        opacity.find(math.nan)
    # At the first parameter's keyframe the path is at its vertex.
    point = s.path([x, y], 2.0)
    assert point == pytest.approx([x.value(2.0), y.value(2.0)], abs=1e-9)
    assert s.path([], 2.0) is None


def test_frame_and_key_navigation():
    s = qdparam.load(EXAMPLES / "pip.xml")
    s.clip = (0.0, 10.0)
    frame = s.frame(2.5)
    assert "caption" not in frame
    assert frame["position_x"] == s["position_x"].value(2.5)
    assert set(s.frame(2.5, [s["size"]])) == {"size"}
    x = s["position_x"]
    assert x.next_key(1.0) == 4.0
    assert x.previous_key(5.0) == 4.0
    assert x.nearest_key(7.0) == 8.0
    assert x.count_keys(0.0, 10.0) == 3


def test_set_values_are_each_parameters_values_at_every_time(pip):
    times = np.array([3.0, 0.0, 9.9, 2.5, 2.5, 7.25, -1.0, 12.0])  # out of order on purpose
    table = pip.values(times)
    assert set(table) == set(pip.frame(0.0))
    for name, values in table.items():
        expected = [pip[name].value(t) for t in times]
        np.testing.assert_array_equal(values, expected)
    size = pip["size"]
    assert list(pip.values([1.0, 2.0], [size])) == ["size"]
    assert pip.values([], [size])["size"].shape == (0,)
    with pytest.raises(ValueError):
        pip.values([[1.0, 2.0]])
