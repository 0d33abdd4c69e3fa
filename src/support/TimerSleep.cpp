#include "support/TimerSleep.h"

#include <QTimer>

#include <qcoro/qcorosignal.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

using namespace std::chrono_literals;

namespace glinta {

void SleepWake::settle()
{
    if (std::exchange(m_settled, true))
        return;
    QMetaObject::invokeMethod(this, &SleepWake::settled, Qt::QueuedConnection);
}

namespace {

// QTimer counts in int milliseconds, so a longer pause runs in parts.
constexpr std::chrono::milliseconds longestTimer{std::numeric_limits<int>::max()};

QCoro::Task<void> timerPart(std::chrono::milliseconds part, CancellationToken cancel)
{
    const std::unique_ptr<SleepWake, DeleteLaterDeleter> wake(new SleepWake);
    const auto registration = cancel.onCancel([w = wake.get()] { w->settle(); });
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, wake.get(), &SleepWake::settle);
    timer.start(part);
    co_await qCoro(wake.get(), &SleepWake::settled);
    cancel.throwIfCancelled();
}

} // namespace

QCoro::Task<void> timerSleep(std::chrono::milliseconds duration, CancellationToken cancel)
{
    do {
        const auto part = std::clamp(duration, 0ms, longestTimer);
        duration -= part;
        co_await timerPart(part, cancel);
    } while (duration > 0ms);
}

} // namespace glinta
