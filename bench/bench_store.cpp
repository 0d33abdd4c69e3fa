// The store's whole refresh cycle (graph request over loopback, decode, apply, snapshot write) against
// glinta-sim in its own process, and a 10,000-cycle soak that reports resident memory before and after.
#include "BenchRig.h"
#include "QtBenchmarkMain.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <fstream>
#include <unistd.h>

using namespace glinta;

namespace {

long residentKiB()
{
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    long resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

void BM_RefreshCycle(benchmark::State &state)
{
    BenchRig rig;
    rig.timeCycles(state);
}
BENCHMARK(BM_RefreshCycle)->Iterations(1)->Repetitions(200)->Unit(benchmark::kMillisecond);

void BM_Soak(benchmark::State &state)
{
    for (auto _ : state) {
        BenchRig rig;
        rig.cycle();
        const long before = residentKiB();
        int failures = 0;
        for (int i = 0; i < state.range(0); ++i)
            failures += rig.cycle() ? 0 : 1;
        const long after = residentKiB();
        state.counters["rss_before_KiB"] = static_cast<double>(before);
        state.counters["rss_after_KiB"] = static_cast<double>(after);
        state.counters["growth_KiB"] = static_cast<double>(after - before);
        state.counters["failed_cycles"] = failures;
    }
}
BENCHMARK(BM_Soak)->Arg(10000)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

GLINTA_QT_BENCHMARK_MAIN(QCoreApplication)
