#pragma once

// The store wired as the program wires it, over glinta-sim in a process of its own: a real client on
// loopback, the snapshot file and settings in a throwaway folder, the demo account's password in memory
// (a benchmark run has no keyring).
#include "MemoryKeychain.h"
#include "SimulatorProcess.h"
#include "client/LibreLinkUpClient.h"
#include "snapshot/SharedSnapshotStore.h"
#include "snapshot/WidgetReloader.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"
#include "support/BuildInfo.h"
#include "support/Clock.h"

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <memory>

namespace glinta {

class BenchRig
{
public:
    BenchRig()
    {
        using namespace Qt::StringLiterals;
        m_client = std::make_unique<LibreLinkUpClient>(&m_network, m_simulator.endpoints());
        m_snapshots = std::make_unique<SharedSnapshotStore>(m_directory.path());
        m_preferences = std::make_unique<Preferences>(
            std::make_unique<QSettings>(m_directory.filePath(u"glinta.conf"_s), QSettings::IniFormat));
        m_preferences->setLibreLinkUpEmail(u"ann@example.com"_s);
        QCoro::waitFor(m_keychain.savePassword(u"correct horse"_s, u"ann@example.com"_s));
        m_store = std::make_unique<GlucoseStore>(
            GlucoseStore::Services{m_client.get(), &m_keychain, m_snapshots.get(), m_preferences.get(),
                                   &m_widgets, &m_clock, BuildInfo::current()});
    }
    BenchRig(const BenchRig &) = delete;
    BenchRig &operator=(const BenchRig &) = delete;

    GlucoseStore &store() const { return *m_store; }
    Preferences &preferences() const { return *m_preferences; }

    // The first cycle signs in and learns the patient: set-up, not what is measured. When it fails the
    // benchmark is skipped with an error.
    bool signIn(benchmark::State &state)
    {
        if (refreshed())
            return true;
        state.SkipWithError("the first cycle failed");
        return false;
    }

    // One refresh cycle, true when the store is still signed in after it. Out of line so that a profile
    // can be limited to the measured work: valgrind --tool=callgrind --toggle-collect='*BenchRig::cycle*'
    [[gnu::noinline]] bool cycle() { return refreshed(); }

    // The same, skipping the benchmark with the store's message when the cycle fails.
    bool cycle(benchmark::State &state)
    {
        if (cycle())
            return true;
        state.SkipWithError(qPrintable(m_store->status().message));
        return false;
    }

    // The service's next reading, as a minute of real polling brings: outside the measured time.
    bool nextReading(benchmark::State &state)
    {
        using namespace std::chrono_literals;
        state.PauseTiming();
        const bool advanced = m_simulator.advance(m_network, 60s);
        state.ResumeTiming();
        if (!advanced)
            state.SkipWithError("glinta-sim did not move its clock on");
        return advanced;
    }

    // Signs in, then one cycle an iteration and nothing else.
    void timeCycles(benchmark::State &state)
    {
        if (!signIn(state))
            return;
        for (auto _ : state) {
            if (!cycle(state))
                return;
        }
    }

private:
    // The poll loop never runs here: every cycle is started by hand, as the Refresh button does.
    class WallClock : public Clock
    {
    public:
        QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
        QCoro::Task<void> sleep(std::chrono::milliseconds, CancellationToken) override { co_return; }
    };

    bool refreshed()
    {
        QCoro::waitFor(m_store->refresh());
        return m_store->status().kind == GlucoseStore::Status::Kind::active;
    }

    SimulatorProcess m_simulator;
    QTemporaryDir m_directory;
    QNetworkAccessManager m_network;
    std::unique_ptr<LibreLinkUpClient> m_client;
    MemoryKeychain m_keychain;
    std::unique_ptr<SharedSnapshotStore> m_snapshots;
    std::unique_ptr<Preferences> m_preferences;
    WidgetReloader m_widgets;
    WallClock m_clock;
    // Last, so that it goes first: the store uses all of the above until it is gone.
    std::unique_ptr<GlucoseStore> m_store;
};

} // namespace glinta
