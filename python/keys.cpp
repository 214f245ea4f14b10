// Keyframes in Python: read as objects with attributes, edited through the
// parameter. Every edit holds the set's guard alone.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <climits>
#include <mutex>
#include <optional>
#include <string>

#include "binding.h"

namespace qdpy {

namespace {

unsigned int KeyIndex(long long index) {
  if (index < 0 || index > UINT_MAX) {
    throw py::value_error("no keyframe has the index " + std::to_string(index));
  }
  return static_cast<unsigned int>(index);
}

// Runs `edit` on the live parameter with the set to itself.
template <typename Edit>
auto Edited(ParamHandle& handle, Edit edit) {
  qd::Param& param = handle.live();
  const std::unique_lock alone(*handle.guard);
  return edit(param);
}

// The index an edit answers, or ValueError.
unsigned int IndexOf(const qd::Result<unsigned int>& result) {
  if (!result) throw py::value_error(result.error().describe());
  return *result;
}

py::list Anchors(const qd::Keyframe& key) {
  py::list anchors;
  for (const qd::Anchor& anchor : key.anchors)
    anchors.append(py::make_tuple(anchor.position, anchor.value));
  return anchors;
}

std::string Describe(const qd::Keyframe& key) {
  return "<qdparam.Keyframe index=" + std::to_string(key.index) +
         " time=" + py::repr(py::float_(key.time)).cast<std::string>() +
         " value=" + py::repr(py::str(key.text)).cast<std::string>() + " " +
         std::string(qd::name_of(key.interpolation)) + ">";
}

std::string DescribeReport(const qd::SimplifyReport& report) {
  return "<qdparam.SimplifyReport keys " + std::to_string(report.keys_before) + " -> " +
         std::to_string(report.keys_after) +
         " max_deviation=" + py::repr(py::float_(report.max_deviation)).cast<std::string>() + ">";
}

}  // namespace

void BindKeys(py::module_& m, py::class_<ParamHandle>& param) {
  py::class_<qd::Keyframe>(m, "Keyframe", "One keyframe as read; edit it through its Param.")
      .def_readonly("index", &qd::Keyframe::index, "Where the parameter stores it; edits take it.")
      .def_readonly("time", &qd::Keyframe::time, "Seconds on the set's time line.")
      .def_readonly("position", &qd::Keyframe::position,
                    "As written: '0.25' (of the clip), '4s' (scaled), '3fs' (fixed).")
      .def_readonly("value", &qd::Keyframe::value, "The number; 0 for String and Binary.")
      .def_readonly("text", &qd::Keyframe::text, "The value as written.")
      .def_readonly("interpolation", &qd::Keyframe::interpolation,
                    "The Interpolation towards the next keyframe.")
      .def_readonly("ease", &qd::Keyframe::ease, "The keyframe's Ease.")
      .def_property_readonly("anchors", &Anchors,
                             "Bezier handles or spline points: a list of (position, value).")
      .def("__repr__", &Describe, "A short description for the console.");

  py::class_<qd::SimplifyReport>(m, "SimplifyReport", "What Param.simplify did.")
      .def_readonly("keys_before", &qd::SimplifyReport::keys_before, "Keyframes before.")
      .def_readonly("keys_after", &qd::SimplifyReport::keys_after, "Keyframes kept.")
      .def_readonly("max_deviation", &qd::SimplifyReport::max_deviation,
                    "The largest difference measured between the curve before and after.")
      .def("__repr__", &DescribeReport, "A short description for the console.");

  param
      .def_property_readonly(
          "keys", [](const ParamHandle& h) { return h.live().keys(); },
          "The keyframes as a list of Keyframe, in time order (stored order when\n"
          "two share a time).")
      .def(
          "set_value",
          [](ParamHandle& h, double value) {
            Check(Edited(h, [&](qd::Param& p) { return p.set_value(value); }));
          },
          py::arg("value"),
          "Sets the static value, clamped to the limits. ValueError when refused.")
      .def(
          "set_text",
          [](ParamHandle& h, const std::string& text) {
            Check(Edited(h, [&](qd::Param& p) { return p.set_text(text); }));
          },
          py::arg("text"), "Sets a String parameter's text. ValueError when refused.")
      .def(
          "add_key",
          [](ParamHandle& h, double time, std::optional<double> value, const py::object& kind) {
            const qd::Interpolation interpolation = ToInterpolation(kind);
            return IndexOf(
                Edited(h, [&](qd::Param& p) { return p.add_key(time, value, interpolation); }));
          },
          py::arg("time"), py::arg("value") = py::none(), py::arg("interpolation") = "Linear",
          "Adds a keyframe at `time` where time order puts it, with `value` or, when\n"
          "None, the value the curve has there. Returns its index; ValueError when\n"
          "refused (a time that is not a number, an interpolation not allowed).")
      .def(
          "insert_key",
          [](ParamHandle& h, double time) {
            return IndexOf(Edited(h, [&](qd::Param& p) { return p.insert_key(time); }));
          },
          py::arg("time"),
          "Adds a keyframe at `time` without changing the curve: a Bezier segment is\n"
          "split so that both halves trace it; elsewhere the keyframe takes the\n"
          "segment's interpolation and the value there. Returns its index;\n"
          "ValueError when refused.")
      .def(
          "simplify",
          [](ParamHandle& h, double tolerance, const py::object& kind) {
            const qd::Interpolation shape = ToInterpolation(kind);
            auto report = Edited(h, [&](qd::Param& p) { return p.simplify(tolerance, shape); });
            if (!report) throw py::value_error(report.error().describe());
            return *report;
          },
          py::arg("tolerance"), py::arg("shape") = "Linear",
          "Replaces a keyed Double parameter's keyframes by as few of them as keep\n"
          "its value within `tolerance`, joined by straight lines ('Linear') or\n"
          "fitted curves ('Bezier'). Returns a SimplifyReport; ValueError when\n"
          "refused (another type, no keyframes, a bad tolerance), nothing changed.")
      .def(
          "move_key",
          [](ParamHandle& h, long long index, double time) {
            const unsigned int key = KeyIndex(index);
            return IndexOf(Edited(h, [&](qd::Param& p) { return p.move_key(key, time); }));
          },
          py::arg("index"), py::arg("time"),
          "Moves keyframe `index` to `time`, keeping its kind of position, and back\n"
          "into time order. Returns its new index; ValueError when refused.")
      .def(
          "remove_key",
          [](ParamHandle& h, long long index) {
            const unsigned int key = KeyIndex(index);
            Check(Edited(h, [&](qd::Param& p) { return p.remove_key(key); }));
          },
          py::arg("index"), "Removes keyframe `index`. ValueError when there is none.")
      .def(
          "set_key_value",
          [](ParamHandle& h, long long index, double value) {
            const unsigned int key = KeyIndex(index);
            Check(Edited(h, [&](qd::Param& p) { return p.set_key_value(key, value); }));
          },
          py::arg("index"), py::arg("value"),
          "Sets keyframe `index`'s value. ValueError when refused.")
      .def(
          "set_key_interpolation",
          [](ParamHandle& h, long long index, const py::object& kind) {
            const unsigned int key = KeyIndex(index);
            const qd::Interpolation interpolation = ToInterpolation(kind);
            Check(Edited(
                h, [&](qd::Param& p) { return p.set_key_interpolation(key, interpolation); }));
          },
          py::arg("index"), py::arg("interpolation"),
          "Sets keyframe `index`'s Interpolation (the enum or its name, 'Bezier').\n"
          "ValueError when the parameter does not allow it.")
      .def(
          "set_extrapolation",
          [](ParamHandle& h, const py::object& before, const py::object& after) {
            const qd::Extrapolation first = ToExtrapolation(before);
            const qd::Extrapolation last = ToExtrapolation(after);
            Check(Edited(h, [&](qd::Param& p) { return p.set_extrapolation(first, last); }));
          },
          py::arg("before"), py::arg("after"),
          "Sets what the value does before the first and after the last keyframe\n"
          "(an Extrapolation or its name, 'Cycle'); Hold writes nothing.")
      .def(
          "set_key_ease",
          [](ParamHandle& h, long long index, const py::object& ease) {
            const unsigned int key = KeyIndex(index);
            const qd::Ease bits = ToEase(ease);
            Check(Edited(h, [&](qd::Param& p) { return p.set_key_ease(key, bits); }));
          },
          py::arg("index"), py::arg("ease"),
          "Sets keyframe `index`'s Ease: the enum, Ease.In | Ease.Out, or a name\n"
          "('EaseInOut', 'In|Out'). ValueError when refused.");
}

}  // namespace qdpy
