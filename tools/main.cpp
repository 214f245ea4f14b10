// qdparam: evaluate, plot and inspect effect parameter sets from the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>
#include <string>

#include "commands.h"
#include "failure.h"
#include "options.h"
#include "qdparam/version.h"
#include "reports.h"

namespace {

using namespace qdtool;

// Exit statuses: a command that could not do its work, and a command line
// that could not be understood.
constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

struct Commands {
  CLI::App* eval;
  CLI::App* plot;
  CLI::App* show;
  CLI::App* dump;
  CLI::App* validate;
  CLI::App* find;
  CLI::App* check;
  CLI::App* simplify;
};

struct AllOptions {
  EvalOptions eval;
  PlotOptions plot;
  ShowOptions show;
  DumpOptions dump;
  ValidateOptions validate;
  FindOptions find;
  CheckOptions check;
  SimplifyOptions simplify;
};

CLI::App* AddEval(CLI::App& app, EvalOptions& options) {
  CLI::App* command =
      app.add_subcommand("eval", "Print every parameter's value at evenly spaced times");
  AddFileArgument(*command, options.file);
  AddSelection(*command, options.selection);
  AddClipWindow(*command, options.timeLine);
  AddSampling(*command, options.timeLine);
  AddFrames(*command, options.timeLine);
  command->add_option("--format", options.format, "table (aligned), csv or json")
      ->check(CLI::IsMember({"table", "csv", "json"}))
      ->capture_default_str();
  command->add_flag("--slope", options.slope,
                    "print how fast each number moves (units per second) instead of its value");
  command->footer(
      "Example: qdparam eval examples/pip.xml --param opacity --fps 30000/1001 --frames 0..60");
  return command;
}

CLI::App* AddPlot(CLI::App& app, PlotOptions& options) {
  CLI::App* command =
      app.add_subcommand("plot", "Draw the numeric parameters over time as an SVG chart");
  AddFileArgument(*command, options.file);
  AddSelection(*command, options.selection);
  AddClipWindow(*command, options.timeLine);
  AddOutput(*command, options.out, options.force,
            "the SVG file to write (default: the input's name with .svg, here)");
  command->add_option("--path", options.path,
                      "draw the motion path of two parameters, named as x,y, instead");
  command->add_flag("--handles", options.handles,
                    "draw the Bezier handles and the spline points of each keyframe");
  command->add_option("--html", options.html,
                      "write an interactive page (hover, zoom, pan, show and hide) instead");
  command->footer(
      "Example: qdparam plot examples/pip.xml --out pip.svg --force\n"
      "         qdparam plot examples/pip.xml --path position_x,position_y --out path.svg");
  return command;
}

CLI::App* AddShow(CLI::App& app, ShowOptions& options) {
  CLI::App* command =
      app.add_subcommand("show", "Summarise each parameter: type, limits, values and keyframes");
  AddFileArgument(*command, options.file);
  AddSelection(*command, options.selection);
  AddDuration(*command, options.timeLine);
  return command;
}

CLI::App* AddDump(CLI::App& app, DumpOptions& options) {
  CLI::App* command = app.add_subcommand("dump", "Print the set's diagnostic dump");
  AddFileArgument(*command, options.file);
  return command;
}

CLI::App* AddValidate(CLI::App& app, ValidateOptions& options) {
  CLI::App* command = app.add_subcommand(
      "validate", "Apply the file's Validation rules and print what they change");
  AddFileArgument(*command, options.file);
  AddOutput(*command, options.out, options.force,
            "write the validated set (with its rules) to this XML file");
  return command;
}

CLI::App* AddFind(CLI::App& app, FindOptions& options) {
  CLI::App* command =
      app.add_subcommand("find", "Print the time a parameter's value first reaches a number");
  AddFileArgument(*command, options.file);
  AddSelection(*command, options.selection);
  AddClipWindow(*command, options.timeLine);
  command->add_option("-v,--value", options.value, "the value to look for")->required();
  command->add_flag("-a,--all", options.all, "print every time it reaches the value");
  command->footer("Example: qdparam find examples/pip.xml --param opacity --value 0.5");
  return command;
}

CLI::App* AddCheck(CLI::App& app, CheckOptions& options) {
  CLI::App* command = app.add_subcommand(
      "check", "Report every error and doubtful entry of the file, with its line and column");
  AddFileArgument(*command, options.file);
  return command;
}

CLI::App* AddSimplify(CLI::App& app, SimplifyOptions& options) {
  CLI::App* command = app.add_subcommand(
      "simplify", "Thin a densely keyed parameter to the fewest keyframes within a tolerance");
  AddFileArgument(*command, options.file);
  AddSelection(*command, options.selection);
  AddDuration(*command, options.timeLine);
  command
      ->add_option("-t,--tolerance", options.tolerance,
                   "the largest difference allowed from the curve as it was")
      ->required();
  command->add_flag("--bezier", options.bezier,
                    "join the kept keyframes by fitted Bezier curves, not straight lines");
  AddOutput(*command, options.out, options.force, "the simplified set's XML file to write");
  command->get_option("--out")->required();
  command->footer("Example: qdparam simplify take.xml --param x --tolerance 0.01 --out thin.xml");
  return command;
}

// The exit status of a command that did its work.
int Run(const Commands& commands, const AllOptions& options) {
  if (commands.check->parsed()) return Check(options.check);
  if (commands.eval->parsed()) Eval(options.eval);
  if (commands.plot->parsed()) Plot(options.plot);
  if (commands.show->parsed()) Show(options.show);
  if (commands.dump->parsed()) Dump(options.dump);
  if (commands.validate->parsed()) Validate(options.validate);
  if (commands.find->parsed()) Find(options.find);
  if (commands.simplify->parsed()) Simplify(options.simplify);
  return 0;
}

constexpr const char* kCommandNames[] = {"eval",     "plot", "show",  "dump",
                                         "validate", "find", "check", "simplify"};

// CLI11 only says that a command is missing; name the word it did not know.
std::string Unparsed(const CLI::ParseError& error, int argc, char** argv) {
  const std::string first = argc > 1 ? argv[1] : "";
  const bool known = std::any_of(std::begin(kCommandNames), std::end(kCommandNames),
                                 [&](const char* name) { return first == name; });
  if (known || (!first.empty() && first[0] == '-')) return error.what();
  const std::string list =
      "the commands are eval, plot, show, dump, validate, find, check and simplify";
  return first.empty() ? "a command is required: " + list
                       : "unknown command \"" + first + "\"; " + list;
}

// The library's reports are left unsaid here: the one line tells what went wrong.
int Fail(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "qdparam: %s\n", message.c_str());
  return kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Evaluate, plot and inspect effect parameter sets.\n"
      "Without a FILE every command works on the bundled example.",
      "qdparam");
  app.set_version_flag("--version", std::string("qdparam ") + qdcore::GetParamLibraryVersion());
  app.require_subcommand(1);
  app.footer("Run qdparam COMMAND --help for a command's options.");
  AllOptions options;
  const Commands commands{AddEval(app, options.eval),         AddPlot(app, options.plot),
                          AddShow(app, options.show),         AddDump(app, options.dump),
                          AddValidate(app, options.validate), AddFind(app, options.find),
                          AddCheck(app, options.check),       AddSimplify(app, options.simplify)};
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForVersion& version) {
    return app.exit(version);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "qdparam: %s (see qdparam --help)\n", Unparsed(error, argc, argv).c_str());
    return kBadUsage;
  }
  LibraryReports reports;
  int status = 0;
  try {
    status = Run(commands, options);
  } catch (const Failure& failure) {
    return Fail(failure.what());
  } catch (const std::bad_alloc&) {
    return Fail("out of memory");
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
  // Output lost to a full disk or a closed pipe is a failure, not a success.
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    const std::string reason = errno ? std::strerror(errno) : "write failed";
    return Fail("cannot write the standard output: " + reason);
  }
  reports.PrintWarnings(stderr);
  return status;
}
