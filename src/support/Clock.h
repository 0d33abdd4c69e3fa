#pragma once

#include "support/Cancellation.h"

#include <QDateTime>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <memory>

namespace glinta {

// Time as the store sees it. The poll loop and the clock tick pause on it, so tests can run hours of
// polling in milliseconds by handing the store a clock of their own.
class Clock
{
public:
    virtual ~Clock() = default;

    // The wall-clock time, in UTC.
    virtual QDateTime now() const = 0;
    // Completes once `duration` has passed on a clock that keeps counting while the computer sleeps, so a
    // pause that spans a sleep is over at wake. Throws CancelledError as soon as `cancel` fires.
    virtual QCoro::Task<void> sleep(std::chrono::milliseconds duration, CancellationToken cancel) = 0;
};

// The platform's clock: a timerfd on CLOCK_BOOTTIME on Linux (a QTimer stops counting during sleep),
// a QTimer elsewhere.
std::unique_ptr<Clock> makeSystemClock();

} // namespace glinta
