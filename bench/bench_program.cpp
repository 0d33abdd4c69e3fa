// What the program does around the store, timed with its real widgets: a refresh cycle with the status
// item's icon and the open panel redrawn, the panel's first opening, and the export of the eight pictures.
// Runs on whatever platform Qt picks: offscreen counts the CPU alone, xcb (inside
// scripts/headless-session.sh) adds what talking to an X server costs. CPU times are the whole process's,
// so the network thread counts too; glinta-sim runs in a process of its own and does not.
#include "Clock.h"
#include "GlucoseChartView.h"
#include "GlucosePanelView.h"
#include "GlucoseStore.h"
#include "ImageExport.h"
#include "MemoryKeychain.h"
#include "MenuBarLabel.h"
#include "Preferences.h"
#include "SharedSnapshotStore.h"
#include "SimulatorProcess.h"
#include "StatusItem.h"
#include "WidgetReloader.h"
#include "WindowRegistry.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <qcoro/qcorotask.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

class WallClock : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
    QCoro::Task<void> sleep(std::chrono::milliseconds, CancellationToken) override { co_return; }
};

// Notes when a widget has been painted; the paint is over once the event loop returns to the caller.
class PaintWatch : public QObject
{
public:
    explicit PaintWatch(QWidget *widget) : m_widget(widget) { widget->installEventFilter(this); }
    bool painted() const { return m_painted; }
    void reset() { m_painted = false; }

    // Runs the event loop until the widget has been painted, at most `timeoutMs`.
    bool waitForPaint(int timeoutMs = 5000)
    {
        QElapsedTimer waited;
        waited.start();
        while (!m_painted && waited.elapsed() < timeoutMs)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        return m_painted;
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == m_widget && event->type() == QEvent::Paint)
            m_painted = true;
        return false;
    }

private:
    QWidget *m_widget;
    bool m_painted = false;
};

// The program's own parts, wired as GlintaApp wires them: store, label, status item and panel.
struct Shell
{
    QTemporaryDir directory;
    std::unique_ptr<Preferences> preferences;
    WindowRegistry windows;
    std::unique_ptr<MenuBarLabel> label;
    std::unique_ptr<StatusItem> statusItem;

    // The dashboard, and its chart, exist only while the store is signed in.
    GlucoseChartView *chart() const { return statusItem->panelWindow()->findChild<GlucoseChartView *>(); }

    void build(GlucoseStore *store, Preferences *prefs)
    {
        auto *panel = new GlucosePanelView(store, prefs, nullptr, false, &windows);
        label = std::make_unique<MenuBarLabel>(store, prefs);
        statusItem = std::make_unique<StatusItem>(label.get(), panel);
    }
};

struct LiveRig
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
    Shell shell;

    LiveRig()
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
        shell.build(store.get(), preferences.get());
    }
    ~LiveRig()
    {
        shell.statusItem.reset();
        store.reset();
    }

    // The first cycle signs in and learns the patient: set-up, not what is measured.
    bool signIn()
    {
        QCoro::waitFor(store->refresh());
        return store->status().kind == GlucoseStore::Status::Kind::active;
    }

    // Out of line so that a profile can be limited to the measured work:
    // valgrind --tool=callgrind --toggle-collect='*LiveRig::cycle*' --toggle-collect='*LiveRig::redraw*'
    [[gnu::noinline]] bool cycle()
    {
        QCoro::waitFor(store->refresh());
        return store->status().kind == GlucoseStore::Status::Kind::active;
    }

    // What follows a cycle on screen: the status item's icon drawn again in all its sizes (the title's
    // own signal, so the program's code path) and the whole open panel, chart included, painted now.
    [[gnu::noinline]] void redraw()
    {
        Q_EMIT shell.label->titleChanged();
        shell.statusItem->panelWindow()->repaint();
        QCoreApplication::processEvents();
    }
};

void BM_CycleWithViews(benchmark::State &state)
{
    LiveRig rig;
    if (!rig.signIn()) {
        state.SkipWithError("the first cycle failed");
        return;
    }
    rig.shell.statusItem->showPanel();
    if (!rig.shell.chart()) {
        state.SkipWithError("the signed-in panel has no chart");
        return;
    }
    PaintWatch watch(rig.shell.chart());
    if (!watch.waitForPaint()) {
        state.SkipWithError("the panel's chart never painted");
        return;
    }
    for (auto _ : state) {
        if (!rig.cycle()) {
            state.SkipWithError(qPrintable(rig.store->status().message));
            return;
        }
        rig.redraw();
    }
    state.counters["history_points"] = static_cast<double>(rig.store->history().size());
}
BENCHMARK(BM_CycleWithViews)
    ->Iterations(1)
    ->Repetitions(200)
    ->ReportAggregatesOnly(true)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

// The same cycle with the panel closed and no redraw: the store's share, and the figure to set beside
// another client's single read.
void BM_CycleStoreOnly(benchmark::State &state)
{
    LiveRig rig;
    if (!rig.signIn()) {
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
BENCHMARK(BM_CycleStoreOnly)
    ->Iterations(1)
    ->Repetitions(200)
    ->ReportAggregatesOnly(true)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

// The redraw alone, without the request: which half of a cycle costs what.
void BM_RedrawOnly(benchmark::State &state)
{
    LiveRig rig;
    if (!rig.signIn()) {
        state.SkipWithError("the first cycle failed");
        return;
    }
    rig.shell.statusItem->showPanel();
    if (!rig.shell.chart()) {
        state.SkipWithError("the signed-in panel has no chart");
        return;
    }
    PaintWatch watch(rig.shell.chart());
    watch.waitForPaint();
    for (auto _ : state)
        rig.redraw();
}
BENCHMARK(BM_RedrawOnly)
    ->Iterations(1)
    ->Repetitions(200)
    ->ReportAggregatesOnly(true)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

// A click on the icon: the panel, built at start-up as the program builds it, shown until its chart has
// been painted. Arg 0 is the first opening (polish and layout included), 1 a later one.
void BM_PanelOpen(benchmark::State &state)
{
    const bool reopen = state.range(0) == 1;
    for (auto _ : state) {
        state.PauseTiming();
        const auto store = GlucoseStore::fromSnapshot(sampleSnapshot(QDateTime::currentDateTimeUtc()));
        Shell shell;
        shell.preferences = std::make_unique<Preferences>(
            std::make_unique<QSettings>(shell.directory.filePath(u"glinta.conf"_s), QSettings::IniFormat));
        shell.build(store.get(), shell.preferences.get());
        if (!shell.chart()) {
            state.SkipWithError("the panel has no chart");
            return;
        }
        PaintWatch watch(shell.chart());
        QCoreApplication::processEvents();
        if (reopen) {
            shell.statusItem->showPanel();
            watch.waitForPaint();
            shell.statusItem->panelWindow()->hide();
            QCoreApplication::processEvents();
            watch.reset();
        }
        state.ResumeTiming();

        QElapsedTimer elapsed;
        elapsed.start();
        shell.statusItem->showPanel();
        const bool painted = watch.waitForPaint();
        state.SetIterationTime(static_cast<double>(elapsed.nsecsElapsed()) / 1e9);

        state.PauseTiming();
        if (!painted) {
            state.SkipWithError("the chart was never painted");
            return;
        }
        shell.statusItem->panelWindow()->hide();
        shell.statusItem.reset();
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_PanelOpen)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Repetitions(30)
    ->ReportAggregatesOnly(true)
    ->UseManualTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

void BM_ExportImages(benchmark::State &state)
{
    QTemporaryDir directory;
    for (auto _ : state)
        exportImages(nullptr, directory.path());
    state.counters["pictures"] =
        static_cast<double>(QDir(directory.path()).entryList({u"glinta-*.png"_s}, QDir::Files).size());
}
BENCHMARK(BM_ExportImages)
    ->Iterations(1)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
