// A whole project built as modders rebuild it while they work: the first build of every addon,
// and the second one with nothing changed, which only compares what each archive was made from.
// The project is the CBA tree of the corpus laid out as a project (addons/, include/) and copied
// VENDRAK_BENCH_BUILD_COPIES times under other addon names (default 8) so that the build has
// enough addons for every core.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "build/ModBuild.h"

namespace fs = std::filesystem;

namespace {

bool quiet(char const*, ...) { return true; }

fs::path make_project() {
  fs::path tree = fs::path(VENDRAK_CORPUS) / "cfgtext" / "cba_a3_tree";
  fs::path root = fs::temp_directory_path() / ("vendrak_bench_build_" + std::to_string(::getpid()));
  fs::remove_all(root);
  if (!fs::is_directory(tree)) return {};
  fs::create_directories(root / "addons");
  fs::copy(tree / "include", root / "include", fs::copy_options::recursive);
  char const* env = std::getenv("VENDRAK_BENCH_BUILD_COPIES");
  int copies = env ? std::atoi(env) : 8;
  for (int c = 0; c < copies; ++c)
    for (auto const& addon : fs::directory_iterator(tree / "x" / "cba" / "addons"))
      fs::copy(addon.path(), root / "addons" / (addon.path().filename().string() + (c ? std::to_string(c) : "")),
               fs::copy_options::recursive);
  fs::create_directories(root / ".hemtt");
  std::ofstream(root / ".hemtt" / "project.toml") << "name = \"CBA\"\nprefix = \"cba\"\nmainprefix = \"x\"\n";
  return root;
}

void run_builds(benchmark::State& state, bool again) {
  fs::path root = make_project();
  if (root.empty()) {
    state.SkipWithError("the corpus is not beside the project");
    return;
  }
  ModBuild::Options o;
  o.project = root.string();
  o.jobs = unsigned(state.range(0));
  size_t addons = 0;
  if (again) {
    ModBuild first;
    first.build(o, quiet);
  }
  for (auto _ : state) {
    if (!again) {
      state.PauseTiming();
      fs::remove_all(root / ".vendrak");
      state.ResumeTiming();
    }
    ModBuild build;
    build.build(o, quiet);
    addons = build.addons().size();
  }
  state.counters["addons"] = double(addons);
  fs::remove_all(root);
}

void BM_BuildFirst(benchmark::State& state) { run_builds(state, false); }
void BM_BuildUnchanged(benchmark::State& state) { run_builds(state, true); }

}  // namespace

BENCHMARK(BM_BuildFirst)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BuildUnchanged)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
