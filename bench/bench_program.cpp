// What the program does around the store, timed with its real widgets: a refresh cycle with the status
// item's icon and the open panel redrawn, the panel's first opening, and the export of the eight pictures.
// Runs on whatever platform Qt picks: offscreen counts the CPU alone, xcb (inside
// scripts/headless-session.sh) adds what talking to an X server costs. CPU times are the whole process's,
// so the network thread counts too; glinta-sim runs in a process of its own and does not.
#include "BenchRig.h"
#include "QtBenchmarkMain.h"
#include "app/ImageExport.h"
#include "app/StatusItem.h"
#include "menubar/GlucoseChartView.h"
#include "menubar/GlucosePanelView.h"
#include "menubar/MenuBarLabel.h"
#include "menubar/WindowRegistry.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// Notes when a widget has been painted; the paint is over once the event loop returns to the caller.
class PaintWatch : public QObject
{
public:
    explicit PaintWatch(QWidget *widget) : m_widget(widget) { widget->installEventFilter(this); }
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

    // The panel is made when first shown; its dashboard, and the chart, exist only while signed in.
    GlucoseChartView *chart() const { return statusItem->panelWindow()->findChild<GlucoseChartView *>(); }

    void build(GlucoseStore *store, Preferences *prefs)
    {
        label = std::make_unique<MenuBarLabel>(store, prefs);
        StatusItem::Parts parts;
        parts.makePanel = [this, store, prefs] {
            return new GlucosePanelView(store, prefs, nullptr, false, &windows);
        };
        statusItem = std::make_unique<StatusItem>(label.get(), prefs, std::move(parts));
    }
};

// The store over glinta-sim with the program's parts around it.
struct LiveRig : BenchRig
{
    Shell shell;
    std::unique_ptr<PaintWatch> chartPaints;

    LiveRig() { shell.build(&store(), &preferences()); }
    ~LiveRig()
    {
        chartPaints.reset();
        shell.statusItem.reset();
    }

    // What follows a cycle on screen: the status item's icon drawn again at the tray's size (the title's
    // own signal, so the program's code path) and the open panel painted. `whole` paints all of the
    // panel now, changed or not: the worst case. Otherwise what the cycle changed is painted as the
    // program paints it, from the event loop, until the chart has taken the new reading in.
    // Out of line, as BenchRig::cycle is, for a profile: --toggle-collect='*LiveRig::redraw*'
    [[gnu::noinline]] void redraw(bool whole)
    {
        Q_EMIT shell.label->titleChanged();
        if (whole) {
            shell.statusItem->panelWindow()->repaint();
            QCoreApplication::processEvents();
        } else {
            chartPaints->waitForPaint();
        }
    }

    // Signed in, with the panel shown on its chart; when either fails the benchmark is skipped.
    bool openPanel(benchmark::State &state)
    {
        if (!signIn(state))
            return false;
        shell.statusItem->showPanel();
        if (shell.chart() && (chartPaints = std::make_unique<PaintWatch>(shell.chart()))->waitForPaint())
            return true;
        state.SkipWithError("the signed-in panel has no chart, or it was never painted");
        return false;
    }
};

// How the three cycle figures are taken, alike so that they can be set beside each other: one cycle a
// repetition, the whole process's CPU, only the aggregates printed.
void perCycle(benchmark::internal::Benchmark *bench)
{
    bench->Iterations(1)->Repetitions(200)->ReportAggregatesOnly(true);
    bench->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);
}

// /0: back to back, so the service has nothing new, and the whole panel painted anyway (the worst case
// for painting); /1: the service a minute on before each cycle, so that each brings a new reading, and
// what changed painted as the program paints it.
void BM_CycleWithViews(benchmark::State &state)
{
    const bool newReadings = state.range(0) == 1;
    LiveRig rig;
    if (!rig.openPanel(state))
        return;
    for (auto _ : state) {
        if (newReadings && !rig.nextReading(state))
            return;
        rig.chartPaints->reset();
        if (!rig.cycle(state))
            return;
        rig.redraw(!newReadings);
    }
    state.counters["history_points"] = static_cast<double>(rig.store().history().size());
}
BENCHMARK(BM_CycleWithViews)->Arg(0)->Arg(1)->Apply(perCycle);

// The same cycle with the panel closed and no redraw: the store's share, and the figure to set beside
// another client's single read.
void BM_CycleStoreOnly(benchmark::State &state)
{
    LiveRig rig;
    rig.timeCycles(state);
}
BENCHMARK(BM_CycleStoreOnly)->Apply(perCycle);

// The redraw alone, without the request: which half of a cycle costs what.
void BM_RedrawOnly(benchmark::State &state)
{
    LiveRig rig;
    if (!rig.openPanel(state))
        return;
    for (auto _ : state)
        rig.redraw(true);
}
BENCHMARK(BM_RedrawOnly)->Apply(perCycle);

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
        QCoreApplication::processEvents();
        if (reopen) {
            shell.statusItem->showPanel();
            if (!shell.chart() || !PaintWatch(shell.chart()).waitForPaint()) {
                state.SkipWithError("the panel's chart was never painted");
                return;
            }
            shell.statusItem->panelWindow()->hide();
            QCoreApplication::processEvents();
        }
        state.ResumeTiming();

        // The first opening makes the panel: the chart is there once showPanel() returns, not yet painted.
        QElapsedTimer elapsed;
        elapsed.start();
        shell.statusItem->showPanel();
        const bool painted = shell.chart() && PaintWatch(shell.chart()).waitForPaint();
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

GLINTA_QT_BENCHMARK_MAIN(QApplication)
