// A parameter set in Python: loading, the clip, finding parameters, presets,
// validation and storing. Loading and storing run without the GIL.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <functional>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "binding.h"

namespace qdpy {

namespace {

// A path from str, bytes or os.PathLike.
std::string PathOf(const py::handle& path) {
  return py::module_::import("os").attr("fspath")(path).cast<std::string>();
}

SetHandle Loaded(qd::Result<qd::Set> result) {
  if (!result) RaiseLoadError(result.error());
  return SetHandle{std::move(*result)};
}

SetHandle Load(const py::handle& path) {
  const std::string file = PathOf(path);
  std::optional<qd::Result<qd::Set>> result;
  {
    py::gil_scoped_release noGil;
    result.emplace(qd::Set::load(file));
  }
  return Loaded(std::move(*result));
}

SetHandle Loads(const std::string& text) {
  std::optional<qd::Result<qd::Set>> result;
  {
    py::gil_scoped_release noGil;
    result.emplace(qd::Set::parse(text));
  }
  return Loaded(std::move(*result));
}

ParamHandle HandleOf(const SetHandle& set, qd::Param param) {
  return {std::move(param), set.guard};
}

py::object Find(const SetHandle& set, std::optional<std::string> name, std::optional<long> id) {
  if (name.has_value() == id.has_value()) throw py::type_error("param() takes a name or an id");
  const std::optional<qd::Param> found = name ? set.set.param(*name) : set.set.param_by_id(*id);
  if (!found) return py::none();
  return py::cast(HandleOf(set, *found));
}

ParamHandle Item(const SetHandle& set, const std::string& name) {
  const std::optional<qd::Param> found = set.set.param(name);
  if (!found) throw py::key_error(name);
  return HandleOf(set, *found);
}

py::list Params(const SetHandle& set) {
  py::list params;
  for (const qd::Param& param : set.set.params()) params.append(HandleOf(set, param));
  return params;
}

void SetClip(SetHandle& set, double start, double duration) {
  Finite(start, "start");
  if (!(Finite(duration, "duration") > 0.0)) throw py::value_error("duration must be positive");
  const std::unique_lock alone(*set.guard);
  set.set.set_clip(start, duration);
}

void Store(const SetHandle& set, const py::handle& path) {
  const std::string file = PathOf(path);
  std::optional<qd::Status> stored;
  {
    py::gil_scoped_release noGil;
    const std::shared_lock shared(*set.guard);
    stored.emplace(set.set.store(file));
  }
  if (!*stored) {
    PyErr_SetString(PyExc_OSError, stored->error().describe().c_str());
    throw py::error_already_set();
  }
}

void Apply(SetHandle& set, const std::string& xml) {
  const std::unique_lock alone(*set.guard);
  const qd::Status applied = set.set.apply(xml);
  if (!applied && applied.error().line > 0) RaiseLoadError(applied.error());
  Check(applied);
}

bool Validate(SetHandle& set) {
  const std::unique_lock alone(*set.guard);
  const qd::Result<bool> changed = set.set.validate();
  if (!changed) throw py::value_error(changed.error().describe());
  return *changed;
}

// The frame of `params`, or of every numeric parameter when None.
qd::Frame FrameOf(const SetHandle& set, const std::optional<std::vector<ParamHandle>>& params) {
  if (!params) return qd::Frame::numeric(set.set);
  std::vector<qd::Param> chosen;
  for (const ParamHandle& p : *params) chosen.push_back(p.live());
  return qd::Frame(std::move(chosen));
}

py::dict ByName(const qd::Frame& frame, const std::function<py::object(std::size_t)>& value) {
  py::dict out;
  for (std::size_t i = 0; i < frame.params().size(); ++i) {
    out[py::str(frame.params()[i].name())] = value(i);
  }
  return out;
}

py::dict FrameAt(const SetHandle& set, double t,
                 const std::optional<std::vector<ParamHandle>>& params) {
  const qd::Frame frame = FrameOf(set, params);
  std::vector<double> values(frame.params().size());
  frame.values(Finite(t, "t"), values);
  return ByName(frame, [&](std::size_t i) { return py::float_(values[i]); });
}

// One frame per time, filled without the GIL: each parameter's search goes
// on from where the frame before left it.
py::dict ValuesAt(const SetHandle& set, const py::handle& times,
                  const std::optional<std::vector<ParamHandle>>& params) {
  const Times at = TimesOf(times);
  const qd::Frame frame = FrameOf(set, params);
  const std::size_t width = frame.params().size();
  const auto count = static_cast<std::size_t>(at.size());
  py::array_t<double> table({width, count});  // a row per parameter
  {
    py::gil_scoped_release noGil;
    const std::shared_lock shared(*set.guard);
    std::vector<double> point(width);
    const double* time = at.data();
    double* rows = table.mutable_data();
    for (std::size_t j = 0; j < count; ++j) {
      frame.values(time[j], point);
      for (std::size_t i = 0; i < width; ++i) rows[i * count + j] = point[i];
    }
  }
  return ByName(frame, [&](std::size_t i) { return table[py::int_(i)]; });
}

std::string Describe(const SetHandle& set) {
  return "<qdparam.Set of " + std::to_string(set.set.params().size()) + " parameters, clip " +
         py::repr(py::make_tuple(set.set.start(), set.set.duration())).cast<std::string>() + ">";
}

}  // namespace

void BindSet(py::module_& m) {
  py::class_<SetHandle>(m, "Set",
                        R"(A parameter set: one effect's parameters and the clip they play on.

set['opacity'] is a parameter by name (KeyError when absent), set.param(id=5)
one by id (None when absent); iterating gives every Param in stored order.
A Set and the Params taken from it share one set; snapshot() makes an
independent copy.)")
      .def(py::init<>(), "An empty set: no parameters, clip (0.0, 1.0).")
      .def_property_readonly(
          "start", [](const SetHandle& s) { return s.set.start(); },
          "Where the clip starts on the time line, in seconds.")
      .def_property_readonly(
          "duration", [](const SetHandle& s) { return s.set.duration(); },
          "How long the clip lasts, in seconds.")
      .def_property(
          "clip",
          [](const SetHandle& s) { return py::make_tuple(s.set.start(), s.set.duration()); },
          [](SetHandle& s, std::pair<double, double> clip) { SetClip(s, clip.first, clip.second); },
          "The clip as (start, duration) in seconds; set it to move or stretch it.\n"
          "ValueError for a duration that is not positive or a time that is not finite.")
      .def("set_clip", &SetClip, py::arg("start"), py::arg("duration"),
           "Places the set on a clip; the same as set.clip = (start, duration).")
      .def("param", &Find, py::arg("name") = py::none(), py::kw_only(), py::arg("id") = py::none(),
           "The parameter called `name`, or the one with `id`; None when there is none.")
      .def("__getitem__", &Item, py::arg("name"),
           "The parameter called `name`; KeyError when absent.")
      .def(
          "__contains__",
          [](const SetHandle& s, const std::string& name) { return s.set.param(name).has_value(); },
          py::arg("name"), "True when a parameter is called `name`.")
      .def(
          "__len__", [](const SetHandle& s) { return s.set.params().size(); },
          "The number of parameters.")
      .def(
          "__iter__", [](const SetHandle& s) { return py::iter(Params(s)); },
          "Every parameter, in stored order.")
      .def_property_readonly("params", &Params, "Every parameter as a list, in stored order.")
      .def("store", &Store, py::arg("path"),
           "Writes the set to `path` atomically: a reader sees the old file or the\n"
           "new one. OSError when it cannot be written (the old file is kept).")
      .def(
          "dumps", [](const SetHandle& s) { return s.set.to_xml(); },
          "The set's XML document, as store() writes it.")
      .def(
          "preset", [](const SetHandle& s) { return s.set.preset(); },
          "A preset of every parameter's value, as XML text.")
      .def("apply", &Apply, py::arg("xml"),
           "Takes the values of a preset (or any set's XML) by parameter id. The set\n"
           "is unchanged on failure: LoadError for text that cannot be read,\n"
           "ValueError for a preset that does not fit. Handles of replaced\n"
           "parameters then raise ReferenceError.")
      .def("validate", &Validate,
           "Runs the set's validation rules; True when a limit or value changed.\n"
           "ValueError when they cannot be run.")
      .def(
          "path",
          [](const SetHandle& s, const std::vector<ParamHandle>& params,
             double t) -> std::optional<std::vector<double>> {
            std::vector<qd::Param> chosen;
            for (const ParamHandle& p : params) chosen.push_back(p.live());
            std::vector<double> point(chosen.size());
            if (!s.set.path(chosen, Finite(t, "t"), point)) return std::nullopt;
            return point;
          },
          py::arg("params"), py::arg("t"),
          "The point at time t on the motion path through the keyed values of\n"
          "`params` (one to eight Double or Long parameters of this set): one\n"
          "coordinate per parameter, or None when the path cannot be made.")
      .def("frame", &FrameAt, py::arg("t"), py::arg("params") = py::none(),
           "Every numeric parameter's value at time t (or those of `params`), as a\n"
           "dict by name: one call per frame. NaN where a parameter answers no number.")
      .def("values", &ValuesAt, py::arg("times"), py::arg("params") = py::none(),
           "Every numeric parameter's values at each of `times` (or those of\n"
           "`params`), as a dict of NumPy arrays by name, filled without the GIL:\n"
           "a whole render's values in one call. Each is what value(t) answers.")
      .def(
          "snapshot", [](const SetHandle& s) { return SetHandle{s.set.snapshot()}; },
          "An independent copy, cheap until either side changes: hand it to a\n"
          "thread that evaluates while this one edits.")
      .def("__repr__", &Describe, "A short description for the console.");

  m.def("load", &Load, py::arg("path"),
        "Reads a Set from a file (str or os.PathLike). LoadError names the file,\n"
        "line and column of what could not be read.");
  m.def("loads", &Loads, py::arg("text"),
        "Reads a Set from XML text (str or UTF-8 bytes). LoadError names the line\n"
        "and column of what could not be read.");
}

}  // namespace qdpy
