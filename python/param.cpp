// A parameter in Python: its definition and its values, one at a time or as
// NumPy arrays filled without the GIL.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "binding.h"

namespace qdpy {

namespace {

// Fills a new array of `count` samples with `fill(out)` outside the GIL, under
// the set's guard; None when the parameter does not answer numbers.
template <typename Fill>
py::object FillArray(const ParamHandle& handle, std::size_t count, Fill fill) {
  const qd::Param param = handle.live();
  py::array_t<double> out(static_cast<py::ssize_t>(count));
  const std::span<double> samples(out.mutable_data(), count);
  bool answered = false;
  {
    py::gil_scoped_release noGil;
    const std::shared_lock shared(*handle.guard);
    answered = fill(param, samples);
  }
  if (!answered) return py::none();
  return out;
}

py::object ValuesAt(const ParamHandle& handle, const py::handle& times) {
  const Times array = TimesOf(times);
  const std::span<const double> at(array.data(), static_cast<std::size_t>(array.size()));
  return FillArray(handle, at.size(), [&](const qd::Param& param, std::span<double> out) {
    return param.values(at, out);
  });
}

py::object Values(const ParamHandle& handle, const py::object& times, std::optional<double> start,
                  std::optional<double> step, std::optional<long long> count) {
  if (!times.is_none()) {
    if (start || step || count) throw py::type_error("give times, or start, step and count");
    return ValuesAt(handle, times);
  }
  if (!step || !count) throw py::type_error("values() needs times, or step and count");
  const double from = Finite(start.value_or(0.0), "start");
  const double by = Finite(*step, "step");
  return FillArray(handle, SampleCount(*count), [&](const qd::Param& param, std::span<double> out) {
    return param.values(from, by, out);
  });
}

// A rate as "30000/1001", "25", (30000, 1001) or 25.
qd::Rate RateOf(const py::handle& rate) {
  if (py::isinstance<py::str>(rate)) {
    const qd::Result<qd::Rate> parsed = qd::Rate::parse(rate.cast<std::string>());
    if (!parsed) throw py::value_error(parsed.error().message);
    return *parsed;
  }
  qd::Rate fraction;
  if (py::isinstance<py::int_>(rate) && !py::isinstance<py::bool_>(rate)) {
    fraction = {rate.cast<std::int64_t>(), 1};
  } else if (py::isinstance<py::tuple>(rate) && py::len(rate) == 2) {
    fraction = {rate[py::int_(0)].cast<std::int64_t>(), rate[py::int_(1)].cast<std::int64_t>()};
  } else {
    throw py::type_error("rate must be 'num/den', an int or a (num, den) tuple of ints");
  }
  if (fraction.numerator <= 0 || fraction.denominator <= 0) {
    throw py::value_error("a rate's numerator and denominator must be positive");
  }
  return fraction;
}

py::object Frames(const ParamHandle& handle, const py::object& rate, std::int64_t first,
                  long long count) {
  const qd::Rate fraction = RateOf(rate);
  const std::size_t frames = SampleCount(count);
  if (frames > 0 &&
      first > std::numeric_limits<std::int64_t>::max() - static_cast<std::int64_t>(frames - 1)) {
    throw py::value_error("the frames run past the last frame number");
  }
  return FillArray(handle, frames, [&](const qd::Param& param, std::span<double> out) {
    return param.frames(fraction, first, out);
  });
}

std::string Describe(const ParamHandle& handle) {
  if (!handle.param.valid()) return "<qdparam.Param (no longer in its set)>";
  const qd::Param& p = handle.param;
  return "<qdparam.Param '" + p.name() + "' id=" + std::to_string(p.id()) + " " +
         std::string(qd::name_of(p.type())) + (p.keyframed() ? " keyframed>" : ">");
}

}  // namespace

void BindParam(py::module_& m) {
  py::class_<ParamHandle> param(m, "Param", R"(One parameter of a Set.

A handle that shares its set: edits through it change the set. When the
parameter leaves the set (a preset that replaced parameters, a reload),
every call but `valid` raises ReferenceError: look it up again.
Times are seconds on the set's time line.)");
  param
      .def_property_readonly(
          "valid", [](const ParamHandle& h) { return h.param.valid(); },
          "False once the parameter is no longer in its set.")
      .def_property_readonly(
          "name", [](const ParamHandle& h) { return h.live().name(); }, "The parameter's name.")
      .def_property_readonly(
          "id", [](const ParamHandle& h) { return h.live().id(); }, "The parameter's id.")
      .def_property_readonly(
          "type", [](const ParamHandle& h) { return h.live().type(); }, "The parameter's Type.")
      .def_property_readonly(
          "keyframed", [](const ParamHandle& h) { return h.live().keyframed(); },
          "True when keyframes animate the value.")
      .def_property_readonly(
          "active", [](const ParamHandle& h) { return h.live().active(); },
          "False when the parameter answers its inactive value.")
      .def_property_readonly(
          "min", [](const ParamHandle& h) { return h.live().min(); },
          "The lower limit, or None when there is none.")
      .def_property_readonly(
          "max", [](const ParamHandle& h) { return h.live().max(); },
          "The upper limit, or None when there is none.")
      .def_property_readonly(
          "granularity", [](const ParamHandle& h) { return h.live().granularity(); },
          "The step values snap to, or None.")
      .def_property_readonly(
          "unit", [](const ParamHandle& h) { return h.live().unit(); },
          "The display unit ('%', 'px'), '' when absent.")
      .def(
          "attribute",
          [](const ParamHandle& h, const std::string& name) { return h.live().attribute(name); },
          py::arg("name"), "Any attribute of the parameter's element as written; '' when absent.")
      .def(
          "value", [](const ParamHandle& h, double t) { return h.live().value(t); }, py::arg("t"),
          "The number at time t (Long as a whole number, Bool as 0 or 1); None for\n"
          "String and Binary parameters.")
      .def(
          "text", [](const ParamHandle& h, double t) { return h.live().text(t); }, py::arg("t"),
          "The text at time t of a String parameter; None for other types.")
      .def(
          "integral", [](const ParamHandle& h, double t) { return h.live().integral(t); },
          py::arg("t"),
          "The area under a Double parameter from the clip's start to time t; None\n"
          "for other types.")
      .def_property_readonly(
          "extrapolation",
          [](const ParamHandle& h) {
            const qd::Extrapolations modes = h.live().extrapolation();
            return py::make_tuple(modes.before, modes.after);
          },
          "What the value does (before the first keyframe, after the last): a pair\n"
          "of Extrapolation.")
      .def(
          "slope", [](const ParamHandle& h, double t) { return h.live().slope(t); }, py::arg("t"),
          "How fast the value moves at time t, in units per second (at a keyframe,\n"
          "the slope of the segment it starts; 0 where the value holds, is clamped\n"
          "or snapped); None for String and Binary parameters.")
      .def(
          "next_key", [](const ParamHandle& h, double t) { return h.live().next_key(t); },
          py::arg("t"), "The time of the first keyframe at or after t; None when none.")
      .def(
          "previous_key", [](const ParamHandle& h, double t) { return h.live().previous_key(t); },
          py::arg("t"), "The time of the last keyframe at or before t; None when none.")
      .def(
          "nearest_key", [](const ParamHandle& h, double t) { return h.live().nearest_key(t); },
          py::arg("t"), "The keyframe time nearest t (the earlier of two as near); None when none.")
      .def(
          "count_keys",
          [](const ParamHandle& h, double from, double to) {
            return h.live().count_keys(from, to);
          },
          py::arg("start"), py::arg("end"), "How many keyframes lie in [start, end].")
      .def(
          "find",
          [](const ParamHandle& h, double value, std::optional<double> after) {
            const qd::Param param = h.live();
            const double target = Finite(value, "value");
            py::gil_scoped_release noGil;
            const std::shared_lock shared(*h.guard);
            return param.find(target, after);
          },
          py::arg("value"), py::kw_only(), py::arg("after") = py::none(),
          "The earliest time from `after` (the clip's start when None) to the clip's\n"
          "end at which the value reaches `value` (equals it, or jumps across it);\n"
          "None when it never does or the parameter is not Double or Long.")
      .def(
          "find_all",
          [](const ParamHandle& h, double value, std::optional<double> after) {
            const qd::Param param = h.live();
            const double target = Finite(value, "value");
            py::gil_scoped_release noGil;
            const std::shared_lock shared(*h.guard);
            return param.find_all(target, after);
          },
          py::arg("value"), py::kw_only(), py::arg("after") = py::none(),
          "Every time find() could answer, in order, as a list of floats.")
      .def("values", &Values, py::arg("times") = py::none(), py::kw_only(),
           py::arg("start") = py::none(), py::arg("step") = py::none(),
           py::arg("count") = py::none(),
           R"(Values at many times in one call, as a float64 NumPy array.

values(times): at each of `times`, any 1-D array-like of numbers.
values(start=0.0, step=..., count=...): at start + i * step.
Each sample is exactly value() at its time. None for parameters that do
not answer numbers. The GIL is released while the array fills.)")
      .def("frames", &Frames, py::arg("rate"), py::kw_only(), py::arg("first") = 0,
           py::arg("count"),
           R"(Values at frames first, first + 1, ... of `rate`, as a float64 array.

`rate` is '30000/1001', '29.97' (exactly 2997/100), '25', (30000, 1001)
or 25. Each frame is at its exact time, frame * den / num rounded once.
None for parameters that do not answer numbers.)")
      .def("__repr__", &Describe, "A short description for the console.");
  BindKeys(m, param);
}

}  // namespace qdpy
