// The store's whole refresh cycle (graph request over loopback, decode, apply, snapshot write) against
// glinta-sim in its own process, and a 10,000-cycle soak that reports resident memory before and after.
#include "Clock.h"
#include "GlucoseStore.h"
#include "KeychainStore.h"
#include "MemoryKeychain.h"
#include "Preferences.h"
#include "QtBenchmarkMain.h"
#include "SharedSnapshotStore.h"
#include "SimulatorProcess.h"
#include "WidgetReloader.h"

#include <QNetworkAccessManager>
#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <qcoro/qcorotask.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// The poll loop never runs here: every cycle is started by hand, as the Refresh button does.
class WallClock : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
    QCoro::Task<void> sleep(std::chrono::milliseconds, CancellationToken) override { co_return; }
};

long residentKiB()
{
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    long resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct Rig
{
    SimulatorProcess simulator;
    QTemporaryDir directory;
    QNetworkAccessManager network;
    std::unique_ptr<LibreLinkUpClient> client;
    MemoryKeychain keychain;
    std::unique_ptr<SharedSnapshotStore> snapshots;
    std::unique_ptr<Preferences> preferences;
    WidgetReloader widgets;
    WallClock clock;
    std::unique_ptr<GlucoseStore> store;

    Rig()
    {
        client = std::make_unique<LibreLinkUpClient>(&network, simulator.endpoints());
        snapshots = std::make_unique<SharedSnapshotStore>(directory.path());
        preferences = std::make_unique<Preferences>(
            std::make_unique<QSettings>(directory.filePath(u"glinta.conf"_s), QSettings::IniFormat));
        preferences->setLibreLinkUpEmail(u"ann@example.com"_s);
        QCoro::waitFor(keychain.savePassword(u"correct horse"_s, u"ann@example.com"_s));
        store = std::make_unique<GlucoseStore>(
            GlucoseStore::Services{client.get(), &keychain, snapshots.get(), preferences.get(), &widgets,
                                   &clock, BuildInfo::current()});
    }
    ~Rig() { store.reset(); }

    bool cycle()
    {
        QCoro::waitFor(store->refresh());
        return store->status().kind == GlucoseStore::Status::Kind::active;
    }
};

void BM_RefreshCycle(benchmark::State &state)
{
    Rig rig;
    if (!rig.cycle()) { // the first cycle signs in and learns the patient
        state.SkipWithError("the first cycle failed");
        return;
    }
    for (auto _ : state) {
        if (!rig.cycle()) {
            state.SkipWithError(qPrintable(rig.store->status().message));
            return;
        }
    }
}
BENCHMARK(BM_RefreshCycle)->Iterations(1)->Repetitions(200)->Unit(benchmark::kMillisecond);

void BM_Soak(benchmark::State &state)
{
    for (auto _ : state) {
        Rig rig;
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

GLINTA_QT_BENCHMARK_MAIN()
