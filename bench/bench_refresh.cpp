// What discovery costs on the simulated PC: refresh of a machine with 1 to 64
// SATA disks, each found, identified and described. The time should grow in
// step with the disks, not faster.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "components/storage_component_manager.h"
#include "sim/machine.h"
#include "sim/windows/face.h"

namespace {

std::string machineWithDisks(int disks) {
  std::string json = R"({"disks": [)";
  for (int i = 0; i < disks; ++i) {
    if (i != 0) json += ",";
    json += R"({"name": "d)" + std::to_string(i) + R"(", "kind": "ata", "bus": "sata", "profile": {"serial": "BENCH)" +
            std::to_string(i) + R"(", "capacitySectors": 1953525168}})";
  }
  return json + "]}";
}

void BM_RefreshSimulatedDisks(benchmark::State& state) {
  const int disks = static_cast<int>(state.range(0));
  std::string error;
  std::unique_ptr<sim::Machine> machine = sim::Machine::fromJsonText(machineWithDisks(disks), &error);
  if (!machine || !sim::installMachine(std::move(machine), &error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  size_t found = 0;
  for (auto _ : state) {
    StorageComponentManager manager(ItemId(1, 0, 1));
    manager.refresh();
    found = manager.getComponentCount();
    benchmark::DoNotOptimize(found);
  }
  sim::uninstallMachine();
  if (found != static_cast<size_t>(disks)) {
    state.SkipWithError(("refresh found " + std::to_string(found) + " disks of " + std::to_string(disks)).c_str());
    return;
  }
  state.counters["disks"] = disks;
}

BENCHMARK(BM_RefreshSimulatedDisks)->Arg(1)->Arg(8)->Arg(16)->Arg(32)->Arg(64)->Unit(benchmark::kMillisecond);

}  // namespace
