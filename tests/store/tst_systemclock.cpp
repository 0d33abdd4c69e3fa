#include "LogCapture.h"
#include "support/Clock.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#ifndef GLINTA_PORTABLE
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

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
    return std::distance(std::filesystem::directory_iterator("/dev/fd"), {});
}

#ifdef GLINTA_PORTABLE
// Only the Linux side has timerfds to deny.
bool denyTimerfd()
{
    return false;
}
#else
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
#endif

// Sleeps side by side, noting when each ended (-1: cancelled) and in which order.
struct Sleepers
{
    Sleepers(Clock &clock, const QList<milliseconds> &durations, int cancelledFirst = -1)
        : tokens(durations.size()), endedAt(durations.size(), -2)
    {
        if (cancelledFirst >= 0)
            tokens[cancelledFirst].cancel();
        since.start();
        for (int i = 0; i < durations.size(); ++i)
            tasks.push_back(sleep(clock, durations[i], i));
    }

    QCoro::Task<void> sleep(Clock &clock, milliseconds duration, int index)
    {
        try {
            co_await clock.sleep(duration, tokens[index]);
            endedAt[index] = since.elapsed();
        } catch (const CancelledError &) {
            endedAt[index] = -1;
        }
        order.append(index);
    }

    QList<CancellationToken> tokens;
    QList<qint64> endedAt;
    QList<int> order;
    QElapsedTimer since;
    std::vector<QCoro::Task<void>> tasks;
};

} // namespace

class TestSystemClock : public QObject
{
    Q_OBJECT

    const bool m_denied = qEnvironmentVariableIsSet("GLINTA_TEST_DENY_TIMERFD");
#ifdef GLINTA_PORTABLE
    const bool m_timerfd = false;
#else
    const bool m_timerfd = !m_denied;
#endif
    std::unique_ptr<LogCapture> m_log; // after QTest's own handler
    std::unique_ptr<Clock> m_clock = makeSystemClock();

private Q_SLOTS:
    void initTestCase()
    {
        m_log = std::make_unique<LogCapture>();
        QVERIFY(!m_denied || denyTimerfd());
        QCOMPARE(m_clock->now().timeSpec(), Qt::UTC);
        QCOMPARE_LT(qAbs(m_clock->now().msecsTo(QDateTime::currentDateTimeUtc())), 1000);
        Sleepers first(*m_clock, {1ms}); // whatever Qt opens on first use
        QTRY_COMPARE(first.order.size(), 1);
    }

    // Side by side: on time, never synchronously, a cancelled one at once, and no descriptor left open.
    void sleeps()
    {
        const qsizetype before = openDescriptors();
        QList<milliseconds> durations{0ms, -30ms, 1h}; // the last cancelled before it starts
        for (int i = 0; i < 200; ++i)
            durations.append(i % 3 == 0 ? 1h : milliseconds(30 + i % 5 * 30)); // 1h: cancelled while sleeping
        Sleepers sleepers(*m_clock, durations, 2);
        QCOMPARE(sleepers.order, QList<int>());
        QCOMPARE(openDescriptors(), before + (m_timerfd ? 200 : 0)); // a timer for each that waits
        QTest::qWait(30);
        const QList<int> endedBefore = sleepers.order;
        for (int i = 0; i < 200; i += 3)
            sleepers.tokens[3 + i].cancel();
        QCOMPARE(sleepers.order, endedBefore); // not inside cancel()
        QTRY_COMPARE(sleepers.order.size(), durations.size());

        // Not one after another, nor the cancelled ones' hour.
        QCOMPARE_LT(sleepers.since.elapsed(), 150 + 2000);
        for (int i = 0; i < durations.size(); ++i) {
            const qint64 at = sleepers.endedAt[i];
            QVERIFY2(sleepers.tokens[i].isCancelled() ? at == -1 : at >= std::max(durations[i], 0ms).count(),
                     qPrintable(u"%1 ended at %2"_s.arg(i).arg(at)));
        }
        QCOMPARE(openDescriptors(), before);
        // Without timerfds, hundreds of sleeps later, the fallback has been logged exactly once.
        const QStringList lines = m_log->lines(u"GlucoseStore"_s);
        QCOMPARE(lines.size(), m_denied ? 1 : 0);
        QVERIFY(lines.isEmpty() || lines.first().startsWith(u"info: "_s));
    }

#ifndef GLINTA_PORTABLE
    // The test above once more, in a child whose kernel refuses timerfds.
    void withoutTimerfd()
    {
        qputenv("GLINTA_TEST_DENY_TIMERFD", "1");
        const int status = QProcess::execute(QCoreApplication::applicationFilePath(), {u"sleeps"_s});
        qunsetenv("GLINTA_TEST_DENY_TIMERFD");
        QCOMPARE(status, 0);
    }
#endif
};

QTEST_GUILESS_MAIN(TestSystemClock)
#include "tst_systemclock.moc"
