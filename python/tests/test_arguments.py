"""Whatever Python passes, the interpreter survives and the error says why."""
import math

import numpy as np
import pytest

import qdparam


@pytest.mark.parametrize(
    "kwargs, error",
    [
        (dict(step=0.1, count=-1), ValueError),
        (dict(step=0.1, count=10**12), ValueError),
        (dict(step=0.1, count=2**70), TypeError),
        (dict(step=math.nan, count=3), ValueError),
        (dict(step=0.1), TypeError),
        (dict(times=[0.0], step=0.1, count=1), TypeError),
        (dict(times=[[0.0, 1.0]]), ValueError),
        (dict(times=5.0), ValueError),
        (dict(times=["a", "b"]), TypeError),
        (dict(times={"a": 1}), TypeError),
        (dict(step=None, count=None), TypeError),
    ],
)
def test_bad_sampling_arguments(ramp, kwargs, error):
    with pytest.raises(error):
        ramp["ramp"].values(**kwargs)


@pytest.mark.parametrize(
    "rate, count, error",
    [
        ("29.97.1", 3, ValueError),
        ("0/1", 3, ValueError),
        (-25, 3, ValueError),
        (29.97, 3, TypeError),
        ((1, 2, 3), 3, TypeError),
        (None, 3, TypeError),
        (25, -3, ValueError),
        (25, 10**10, ValueError),
    ],
)
def test_bad_frame_arguments(ramp, rate, count, error):
    with pytest.raises(error):
        ramp["ramp"].frames(rate, count=count)


def test_frame_numbers_stay_in_range(ramp):
    with pytest.raises(ValueError):
        ramp["ramp"].frames(25, first=2**63 - 2, count=3)  # past the last frame number
    assert ramp["ramp"].frames(25, first=-(2**63), count=2).shape == (2,)


def test_wrong_types_are_type_errors(ramp):
    for call in (
        lambda: ramp["ramp"].value(None),
        lambda: ramp["ramp"].value("1"),
        lambda: ramp[None],
        lambda: ramp.param("ramp", id=1),
        lambda: qdparam.loads(None),
        lambda: qdparam.load(None),
        lambda: qdparam.load(3.5),
    ):
        with pytest.raises(TypeError):
            call()


@pytest.mark.parametrize("clip", [(0.0, 0.0), (0.0, -1.0), (math.nan, 1.0), (0.0, math.inf)])
def test_refused_clips(ramp, clip):
    with pytest.raises(ValueError):
        ramp.clip = clip
    assert ramp.clip == (0.0, 10.0)


def test_odd_text_is_refused_not_fatal():
    for text in ("\x00", "<Property>\udcff</Property>", "<" * 100000):
        with pytest.raises((qdparam.LoadError, TypeError, UnicodeError)):
            qdparam.loads(text)
    with pytest.raises(qdparam.LoadError):
        qdparam.load("/no\x00such")


def test_zero_samples(ramp):
    assert ramp["ramp"].values(step=1.0, count=0).shape == (0,)
    assert ramp["ramp"].values(np.empty(0)).shape == (0,)
