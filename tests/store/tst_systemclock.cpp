#include "Clock.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TaskOutcome.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using std::chrono::milliseconds;

namespace {

qsizetype openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// As an old kernel or a sandbox would; for good, so only in a child process.
bool denyTimerfd()
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_timerfd_create, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// run() wants a value.
QCoro::Task<bool> ended(QCoro::Task<void> task)
{
    co_await std::move(task);
    co_return true;
}

// Notes when the sleep ended (-1 when cancelled) and in which order sleeps ended.
QCoro::Task<void> noteEnd(Clock &clock, milliseconds duration, CancellationToken cancel, qint64 &endedAt,
                          QList<int> &order, int index, const QElapsedTimer &since)
{
    try {
        co_await clock.sleep(duration, cancel);
        endedAt = since.elapsed();
    } catch (const CancelledError &) {
        endedAt = -1;
    }
    order.append(index);
}

QCoro::Task<bool> allEnded(std::vector<QCoro::Task<void>> tasks)
{
    for (auto &task : tasks)
        co_await task;
    co_return true;
}

} // namespace

class TestSystemClock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void sleeps_data();
    void sleeps();
    void concurrentSleepsAreIndependent();
    void fallbackIsSaidOnce();
#ifndef GLINTA_TEST_QTIMER_CLOCK
    void withoutTimerfd();
#endif
    void manualClockAutomatic();
    void manualClockManual_data();
    void manualClockManual();

private:
    const bool m_denied = qEnvironmentVariableIsSet("GLINTA_TEST_DENY_TIMERFD");
#ifdef GLINTA_TEST_QTIMER_CLOCK
    const bool m_timerfd = false;
#else
    const bool m_timerfd = !m_denied;
#endif
    std::unique_ptr<LogCapture> m_log; // after QTest's own handler
    std::unique_ptr<Clock> m_clock = makeSystemClock();
};

void TestSystemClock::initTestCase()
{
    m_log = std::make_unique<LogCapture>();
    QVERIFY(!m_denied || denyTimerfd());
    QCOMPARE(m_clock->now().timeSpec(), Qt::UTC);
    QCOMPARE_LT(qAbs(m_clock->now().msecsTo(QDateTime::currentDateTimeUtc())), 1000);
    QVERIFY(run(ended(m_clock->sleep(1ms, {}))).value); // whatever Qt opens on first use
}

void TestSystemClock::sleeps_data()
{
    QTest::addColumn<int>("ms");
    QTest::addColumn<int>("cancelAfter"); // -1: never
    QTest::newRow("50 ms") << 50 << -1;
    QTest::newRow("120 ms") << 120 << -1;
    QTest::newRow("zero") << 0 << -1;
    QTest::newRow("negative") << -30 << -1;
    QTest::newRow("cancelled before") << 3'600'000 << 0;
    QTest::newRow("cancelled while sleeping") << 3'600'000 << 30;
}

void TestSystemClock::sleeps()
{
    QFETCH(int, ms);
    QFETCH(int, cancelAfter);
    const qsizetype before = openDescriptors();
    CancellationToken cancel;
    if (cancelAfter == 0)
        cancel.cancel();
    QElapsedTimer elapsed;
    elapsed.start();
    QCoro::Task<void> task = m_clock->sleep(milliseconds(ms), cancel);
    if (cancelAfter > 0) {
        QTest::qWait(cancelAfter);
        QCOMPARE(openDescriptors(), before + (m_timerfd ? 1 : 0)); // the sleep's own timer
        cancel.cancel();
    }
    QVERIFY2(!task.isReady(), "ended synchronously or inside cancel()");
    const auto outcome = run(ended(std::move(task)));
    if (cancelAfter < 0)
        QVERIFY2(!outcome.error, describe(outcome.error));
    else
        QVERIFY2(errorAs<CancelledError>(outcome.error), describe(outcome.error));
    const int expected = cancelAfter < 0 ? std::max(ms, 0) : cancelAfter;
    QCOMPARE_GE(elapsed.elapsed(), expected);
    QCOMPARE_LT(elapsed.elapsed(), expected + 2000);
    QCOMPARE(openDescriptors(), before);
}

void TestSystemClock::concurrentSleepsAreIndependent()
{
    constexpr int count = 200;
    const auto duration = [](int i) { return milliseconds(30 + i % 5 * 30); };
    const qsizetype before = openDescriptors();
    QList<CancellationToken> tokens(count);
    QList<qint64> endedAt(count, -2);
    QList<int> order;
    std::vector<QCoro::Task<void>> tasks;
    QElapsedTimer elapsed;
    elapsed.start();
    for (int i = 0; i < count; ++i)
        tasks.push_back(noteEnd(*m_clock, duration(i), tokens[i], endedAt[i], order, i, elapsed));
    for (int i = 0; i < count; i += 3)
        tokens[i].cancel();
    QVERIFY(run(allEnded(std::move(tasks))).value);

    QCOMPARE_LT(elapsed.elapsed(), 150 + 2000); // side by side, not one after another
    QCOMPARE(order.size(), count);
    for (int i = 0; i < count; ++i) {
        const bool right = i % 3 == 0 ? endedAt[i] == -1 : endedAt[i] >= duration(i).count();
        QVERIFY2(right, qPrintable(u"%1 ended at %2"_s.arg(i).arg(endedAt[i])));
    }
    QCOMPARE(openDescriptors(), before);
}

void TestSystemClock::fallbackIsSaidOnce()
{
    const auto lines = m_log->inCategory(u"com.nordvik.glinta.GlucoseStore"_s);
    QCOMPARE(lines.size(), m_denied ? 1 : 0);
    QVERIFY(lines.isEmpty() || lines.first().type == QtInfoMsg);
}

#ifndef GLINTA_TEST_QTIMER_CLOCK
// The tests above once more, in a child whose kernel refuses timerfds.
void TestSystemClock::withoutTimerfd()
{
    if (m_denied)
        return;
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"GLINTA_TEST_DENY_TIMERFD"_s, u"1"_s);
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(),
                {u"sleeps"_s, u"concurrentSleepsAreIndependent"_s, u"fallbackIsSaidOnce"_s});
    QVERIFY(child.waitForFinished(60'000));
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(child.exitCode(), 0);
}
#endif

void TestSystemClock::manualClockAutomatic()
{
    ManualClock clock;
    const QDateTime start = clock.now();
    QCOMPARE(start, QDateTime(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc()));
    CancellationToken cancelled;
    cancelled.cancel();
    QVERIFY(errorAs<CancelledError>(run(ended(clock.sleep(1h, cancelled))).error));
    const QList<milliseconds> asked = QList<milliseconds>(600, 60s) << 0ms << -5s << 30s;
    const auto loop = [&]() -> QCoro::Task<bool> {
        for (const milliseconds duration : asked) {
            QCoro::Task<void> pause = clock.sleep(duration, {});
            if (pause.isReady())
                co_return false;
            co_await pause;
        }
        co_return true;
    };
    QVERIFY2(run(loop()).value.value_or(false), "a sleep ended synchronously or threw");
    QCOMPARE(clock.now(), start.addSecs(10 * 3600 + 30)); // cancelled, zero and negative move nothing
    QCOMPARE(clock.sleepCount(), asked.size() + 1);
    QCOMPARE(clock.sleepDurations(), QList<milliseconds>{1h} + asked);
}

void TestSystemClock::manualClockManual_data()
{
    QTest::addColumn<QList<int>>("seconds");
    QTest::addColumn<int>("cancelled"); // the sleep whose token fires at once; -1: none
    QTest::addColumn<QList<int>>("steps");
    QTest::addColumn<QList<int>>("pendingAfter");
    QTest::addColumn<QList<int>>("order");
    QTest::newRow("deadline order") << QList{30, 10, 20} << -1 << QList{60} << QList{0} << QList{1, 2, 0};
    QTest::newRow("in steps") << QList{30, 10, 20} << -1 << QList{15, 10, 10} << QList{2, 1, 0}
                              << QList{1, 2, 0};
    QTest::newRow("not before the deadline") << QList{10} << -1 << QList{9} << QList{1} << QList<int>();
    QTest::newRow("ties in order") << QList{20, 20, 5} << -1 << QList{20} << QList{0} << QList{2, 0, 1};
    QTest::newRow("zero ends unasked") << QList{5, 0} << -1 << QList{0} << QList{1} << QList{1};
    QTest::newRow("cancelled ends unasked") << QList{5, 10} << 1 << QList{5} << QList{0} << QList{1, 0};
}

void TestSystemClock::manualClockManual()
{
    QFETCH(QList<int>, seconds);
    QFETCH(int, cancelled);
    QFETCH(QList<int>, steps);
    QFETCH(QList<int>, pendingAfter);
    QFETCH(QList<int>, order);
    auto clock = std::make_unique<ManualClock>(ManualClock::Mode::manual);
    const QDateTime start = clock->now();
    QList<CancellationToken> tokens(seconds.size());
    QList<qint64> endedAt(seconds.size());
    QList<int> ended;
    std::vector<QCoro::Task<void>> tasks;
    QElapsedTimer since;
    since.start();
    for (int i = 0; i < seconds.size(); ++i)
        tasks.push_back(
            noteEnd(*clock, milliseconds(seconds[i] * 1000), tokens[i], endedAt[i], ended, i, since));
    if (cancelled >= 0)
        tokens[cancelled].cancel();
    QCOMPARE(ended, QList<int>()); // not synchronously

    int moved = 0;
    for (int i = 0; i < steps.size(); ++i) {
        QCoreApplication::processEvents();
        const QList<int> endedBefore = ended;
        clock->jump(milliseconds(steps[i] * 1000));
        moved += steps[i];
        QCOMPARE(ended, endedBefore); // not synchronously
        QCoreApplication::processEvents();
        QCOMPARE(clock->pendingSleeps(), pendingAfter[i]);
    }
    QCOMPARE(ended, order);
    QVERIFY(cancelled < 0 || endedAt[cancelled] == -1);
    QCOMPARE(clock->now(), start.addSecs(moved));
    clock.reset(); // ends what still waits
    QCoreApplication::processEvents();
    QCOMPARE(ended.size(), seconds.size());
}

QTEST_GUILESS_MAIN(TestSystemClock)
#include "tst_systemclock.moc"
