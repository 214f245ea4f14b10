#include "htmlplot.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "textformat.h"

namespace qdtool {

namespace {

// One colour per parameter, told apart by most readers (Okabe and Ito).
constexpr const char* kPalette[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                    "#e69f00", "#56b4e9", "#7f3c8d", "#f0e442"};

// Every point of every run, in time order: the runs of a panel follow each
// other, each starting where the last one ended.
nlohmann::ordered_json PanelJson(const Panel& panel, std::size_t index) {
  std::vector<double> times, values;
  for (const Run& run : panel.runs) {
    for (const Point& point : run.points) {
      if (!times.empty() && point.time == times.back() && point.value == values.back()) continue;
      times.push_back(point.time);
      values.push_back(point.value);
    }
  }
  nlohmann::ordered_json keys = nlohmann::ordered_json::array();
  for (const Mark& mark : panel.marks) keys.push_back({mark.time, mark.value, mark.tip});
  nlohmann::ordered_json json{{"title", panel.title},
                              {"unit", panel.unit},
                              {"colour", kPalette[index % std::size(kPalette)]},
                              {"boolean", panel.boolean},
                              {"steps", panel.whole || panel.boolean},
                              {"t", times},
                              {"v", values},
                              {"keys", keys}};
  if (panel.min) json["min"] = *panel.min;
  if (panel.max) json["max"] = *panel.max;
  return json;
}

// JSON inside a script element: "</" would end the element.
std::string ScriptSafe(std::string json) {
  for (std::size_t at = json.find("</"); at != std::string::npos; at = json.find("</", at + 3)) {
    json.replace(at, 2, "<\\/");
  }
  return json;
}

constexpr const char* kStyle = R"(
body { font-family: "DejaVu Sans", Helvetica, Arial, sans-serif; margin: 24px; color: #1b1b1b; }
h1 { font-size: 20px; margin: 0 0 4px; }
p.sub { color: #555; margin: 0 0 12px; font-size: 13px; }
#names button { font: inherit; font-size: 13px; margin: 0 6px 6px 0; padding: 3px 8px;
  border: 1px solid #bbb; border-radius: 4px; background: #fff; cursor: pointer; }
#names button.off { opacity: 0.4; text-decoration: line-through; }
#names button span { display: inline-block; width: 10px; height: 10px; margin-right: 6px; }
#readout { font-size: 13px; min-height: 20px; margin: 4px 0 10px; white-space: pre; }
.panel h2 { font-size: 14px; margin: 10px 0 2px; }
canvas { display: block; cursor: crosshair; }
p.help { color: #777; font-size: 12px; }
)";

// Plain script: draws each panel from the library's samples; the page never
// computes a value itself, it only picks the sample at or before a time.
constexpr const char* kScript = R"js(
window.onerror = function () { document.body.setAttribute("data-error", "yes"); };
(function () {
  "use strict";
  var data = JSON.parse(document.getElementById("chart-data").textContent);
  var W = 940, H = 150, L = 70, R = 20, T = 10, B = 24;
  var from = data.from, to = data.to, cursor = null, drag = null;
  var readout = document.getElementById("readout");

  function x(t) { return L + (t - from) / (to - from) * (W - L - R); }
  function timeAt(px) { return from + (px - L) / (W - L - R) * (to - from); }
  function valueAt(p, t) {
    var lo = 0, hi = p.t.length - 1;
    if (hi < 0 || t < p.t[0]) return null;
    while (lo < hi) {
      var mid = (lo + hi + 1) >> 1;
      if (p.t[mid] <= t) lo = mid; else hi = mid - 1;
    }
    return p.v[lo];
  }
  function range(p) {
    var lo = Infinity, hi = -Infinity;
    p.v.forEach(function (v) { if (isFinite(v)) { lo = Math.min(lo, v); hi = Math.max(hi, v); } });
    if (!isFinite(lo)) { lo = 0; hi = 1; }
    if (lo === hi) { lo -= 1; hi += 1; }
    var room = (hi - lo) * 0.08;
    return [lo - room, hi + room];
  }
  function label(v) { return Math.abs(v) >= 1e6 ? v.toExponential(3) : +v.toFixed(3) + ""; }

  function draw(p) {
    var g = p.canvas.getContext("2d"), r = p.range;
    var y = function (v) { return T + (1 - (v - r[0]) / (r[1] - r[0])) * (H - T - B); };
    g.clearRect(0, 0, W, H);
    g.strokeStyle = "#d0d0d0"; g.lineWidth = 1; g.strokeRect(L, T, W - L - R, H - T - B);
    g.fillStyle = "#555"; g.font = "11px sans-serif"; g.textAlign = "right";
    g.fillText(label(r[1]), L - 6, T + 10); g.fillText(label(r[0]), L - 6, H - B);
    g.textAlign = "center";
    for (var i = 0; i <= 8; ++i) {
      var t = from + (to - from) * i / 8;
      g.fillText(+t.toFixed(3) + " s", x(t), H - 6);
    }
    g.save(); g.beginPath(); g.rect(L, T, W - L - R, H - T - B); g.clip();
    g.strokeStyle = p.colour; g.lineWidth = 2.2; g.beginPath();
    var started = false, last = null;
    for (var k = 0; k < p.t.length; ++k) {
      if (!isFinite(p.v[k])) continue;
      var px = x(p.t[k]), py = y(p.v[k]);
      if (!started) { g.moveTo(px, py); started = true; }
      else if (p.steps) { g.lineTo(px, last); g.lineTo(px, py); }
      else g.lineTo(px, py);
      last = py;
    }
    g.stroke();
    g.fillStyle = "#fff"; g.strokeStyle = "#1b1b1b"; g.lineWidth = 1.5;
    p.keys.forEach(function (key) {
      var kx = x(key[0]), ky = y(key[1]);
      g.beginPath(); g.moveTo(kx, ky - 5); g.lineTo(kx + 5, ky); g.lineTo(kx, ky + 5);
      g.lineTo(kx - 5, ky); g.closePath(); g.fill(); g.stroke();
    });
    if (cursor !== null) {
      g.strokeStyle = "#444"; g.lineWidth = 1; g.beginPath();
      g.moveTo(x(cursor), T); g.lineTo(x(cursor), H - B); g.stroke();
    }
    g.restore();
  }

  function redraw() {
    data.panels.forEach(function (p) { if (!p.hidden) draw(p); });
    if (cursor === null) { readout.textContent = ""; return; }
    var parts = ["t = " + cursor.toFixed(4) + " s"];
    data.panels.forEach(function (p) {
      if (p.hidden) return;
      var v = valueAt(p, cursor);
      parts.push(p.title + " " + (v === null ? "-" : label(v)) + (p.unit ? " " + p.unit : ""));
    });
    readout.textContent = parts.join("   ");
  }

  var names = document.getElementById("names"), holder = document.getElementById("panels");
  data.panels.forEach(function (p) {
    p.range = range(p);
    var box = document.createElement("div"); box.className = "panel";
    var title = document.createElement("h2"); title.textContent = p.title + (p.unit ? " (" + p.unit + ")" : "");
    p.canvas = document.createElement("canvas"); p.canvas.width = W; p.canvas.height = H;
    box.appendChild(title); box.appendChild(p.canvas); holder.appendChild(box); p.box = box;
    var button = document.createElement("button");
    var swatch = document.createElement("span"); swatch.style.background = p.colour;
    button.appendChild(swatch); button.appendChild(document.createTextNode(p.title));
    button.onclick = function () {
      p.hidden = !p.hidden; box.style.display = p.hidden ? "none" : "";
      button.className = p.hidden ? "off" : ""; redraw();
    };
    names.appendChild(button);
    p.canvas.addEventListener("mousemove", function (e) {
      var t = timeAt(e.offsetX);
      if (drag !== null) { var shift = drag - t; from += shift; to += shift; }
      else cursor = t;
      redraw();
    });
    p.canvas.addEventListener("mousedown", function (e) { drag = timeAt(e.offsetX); });
    p.canvas.addEventListener("wheel", function (e) {
      e.preventDefault();
      var t = timeAt(e.offsetX), k = e.deltaY < 0 ? 0.8 : 1.25;
      from = t - (t - from) * k; to = t + (to - t) * k; redraw();
    });
    p.canvas.addEventListener("dblclick", function () { from = data.from; to = data.to; redraw(); });
  });
  window.addEventListener("mouseup", function () { drag = null; });
  redraw();
  document.body.setAttribute("data-ready", "yes");
})();
)js";

}  // namespace

std::string RenderHtml(const Chart& chart) {
  nlohmann::ordered_json data{{"from", chart.from}, {"to", chart.to}};
  data["panels"] = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < chart.panels.size(); ++i) {
    data["panels"].push_back(PanelJson(chart.panels[i], i));
  }
  std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n";
  page += "<title>" + XmlEscape(chart.title) + "</title>\n<style>" + kStyle + "</style>\n";
  page += "</head>\n<body>\n<h1>" + XmlEscape(chart.title) + "</h1>\n<p class=\"sub\">" +
          XmlEscape(chart.subtitle) + "</p>\n";
  page += "<div id=\"names\"></div>\n<div id=\"readout\"></div>\n<div id=\"panels\"></div>\n";
  page +=
      "<p class=\"help\">Hover to read every value at a time; wheel to zoom the time axis, drag "
      "to pan, double-click to see the whole window; click a name to show or hide it.</p>\n";
  if (!chart.note.empty()) page += "<p class=\"help\">" + XmlEscape(chart.note) + "</p>\n";
  page += "<script type=\"application/json\" id=\"chart-data\">" + ScriptSafe(data.dump()) +
          "</script>\n<script>" + kScript + "</script>\n</body>\n</html>\n";
  return page;
}

}  // namespace qdtool
