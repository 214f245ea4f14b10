// Time and peak memory of loading big parameter sets into a qd::Set, each in
// a fresh process so that one load's peak does not hide the next one's.
//
//   qdparam_loadmem                 10, 50 and 100 MB sets, written to temporary files
//   qdparam_loadmem 20 200          sets of those sizes in MB
//   qdparam_loadmem --write MB FILE writes a set of that size
//   qdparam_loadmem --load FILE     loads FILE and prints one line of figures
//
// "added" is the peak resident size over what the process held before the
// load, divided by the document's size: what loading costs in memory.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "paramsetdoc.h"
#include "qdparam/qdparam.hpp"

extern char** environ;

namespace {

constexpr int kKeyframes = 16;
constexpr double kMB = 1024.0 * 1024.0;

// The largest resident size the process had so far, in bytes.
double PeakResident() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_maxrss) * 1024.0;
}

// Processor time the process used so far, in seconds: on a shared machine
// the wall time also counts the others' turns.
double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) * 1e-6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

bool Write(double megabytes, const std::string& path) {
  const std::string text =
      qdbench::MakeDocumentOfSize(static_cast<std::size_t>(megabytes * kMB), kKeyframes);
  std::ofstream out(path, std::ios::binary);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  return static_cast<bool>(out);
}

int Load(const std::string& path) {
  const double size = double(std::filesystem::file_size(path));
  const double before = PeakResident();
  const double cpuStart = ProcessorSeconds();
  const auto start = std::chrono::steady_clock::now();
  qd::Result<qd::Set> set = qd::Set::load(path);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  const double cpu = ProcessorSeconds() - cpuStart;
  const double peak = PeakResident();
  if (!set) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), set.error().message.c_str());
    return 1;
  }
  std::printf("%8.1f %10zu %9.3f %9.1f %9.3f %9.1f %10.1f %7.2f %7.2f\n", size / kMB,
              set->params().size(), seconds.count(), size / kMB / seconds.count(), cpu,
              size / kMB / cpu, peak / kMB, peak / size, (peak - before) / size);
  return 0;
}

// Runs this program again with `args`; false when it fails.
bool RunFresh(std::vector<std::string> args) {
  args.insert(args.begin(), "/proc/self/exe");
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, argv.data(), environ) != 0)
    return false;
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 3 && args[0] == "--write")
    return Write(std::atof(args[1].c_str()), args[2]) ? 0 : 1;
  if (args.size() == 2 && args[0] == "--load") return Load(args[1]);
  std::vector<double> sizes;
  for (const std::string& arg : args) sizes.push_back(std::atof(arg.c_str()));
  if (sizes.empty()) sizes = {10, 50, 100};
  std::printf("%8s %10s %9s %9s %9s %9s %10s %7s %7s\n", "MB", "params", "seconds", "MB/s", "cpu s",
              "cpu MB/s", "peak MB", "peak/MB", "added");
  std::fflush(stdout);
  const std::filesystem::path folder = std::filesystem::temp_directory_path();
  for (const double megabytes : sizes) {
    const std::string path =
        (folder / ("qdparam_loadmem_" + std::to_string(getpid()) + ".xml")).string();
    const bool ok =
        RunFresh({"--write", std::to_string(megabytes), path}) && RunFresh({"--load", path});
    std::filesystem::remove(path);
    if (!ok) return 1;
  }
  return 0;
}
