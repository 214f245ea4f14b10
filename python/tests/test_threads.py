"""Threads evaluating at once, without the GIL, and beside edits."""
import threading

import numpy as np

import qdparam
from conftest import EXAMPLES


def run_threads(count, work):
    errors = []

    def guarded(i):
        try:
            work(i)
        except BaseException as error:  # reported by the main thread
            errors.append(error)

    threads = [threading.Thread(target=guarded, args=(i,)) for i in range(count)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors, errors


def test_two_threads_evaluate_at_once():
    s = qdparam.load(EXAMPLES / "pip.xml")
    s.clip = (0.0, 10.0)
    times = np.linspace(0, 10, 400_000)
    names = ["position_x", "size", "rotation", "opacity"]
    expected = {n: s[n].values(times) for n in names}
    got = [{}, {}]

    def evaluate(i):
        for _ in range(3):
            for n in names:
                got[i][n] = s[n].values(times)

    run_threads(2, evaluate)
    for results in got:
        for n in names:
            np.testing.assert_array_equal(results[n], expected[n], err_msg=n)


def test_each_evaluation_sees_a_whole_edit():
    s = qdparam.loads(
        """<Property><Parameter id="1" name="ramp" value="0" useKeyframe="True">
        <Keyframe position="0" value="0" interpolation="Linear"/>
        <Keyframe position="1" value="100" interpolation="Hold"/></Parameter></Property>"""
    )
    ramp = s["ramp"]
    times = np.linspace(0, 1, 200_000)
    before = ramp.values(times)
    ramp.set_key_value(0, 50.0)
    after = ramp.values(times)
    done = threading.Event()

    def edit(_):
        try:
            for i in range(200):
                ramp.set_key_value(0, 0.0 if i % 2 else 50.0)
        finally:
            done.set()

    seen = []

    def evaluate(_):
        while not done.is_set():
            seen.append(ramp.values(times))

    run_threads(2, lambda i: (edit if i == 0 else evaluate)(i))
    for values in seen:
        assert np.array_equal(values, before) or np.array_equal(values, after)

