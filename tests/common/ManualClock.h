#pragma once

#include "support/Clock.h"

#include <QCoreApplication>
#include <QList>
#include <QTimeZone>

#include <algorithm>
#include <chrono>
#include <coroutine>
#include <memory>
#include <utility>

// Hours of polling in milliseconds: a sleep waits until advance() reaches its deadline, never ends
// synchronously, and throws CancelledError if the clock goes first. setNow() moves only the wall clock.
class ManualClock : public glinta::Clock
{
public:
    ManualClock() = default;
    ManualClock(const ManualClock &) = delete;
    ManualClock &operator=(const ManualClock &) = delete;
    ~ManualClock() override
    {
        for (const auto &waiter : std::as_const(m_waiters))
            settle(waiter, true);
    }

    QDateTime now() const override { return m_now; }
    void setNow(QDateTime now) { m_now = std::move(now); }

    QCoro::Task<void> sleep(std::chrono::milliseconds duration, glinta::CancellationToken cancel) override
    {
        m_durations.append(duration);
        const auto waiter = std::make_shared<Waiter>();
        waiter->deadline = m_elapsed + std::max(duration, std::chrono::milliseconds(0));
        // Holds only the waiter: the token may fire after the clock is gone.
        const auto registration = cancel.onCancel([waiter] { settle(waiter, true); });
        if (!waiter->settled) {
            m_waiters.append(waiter);
            advance(std::chrono::milliseconds(0));
        }

        co_await Suspend{*waiter};
        if (waiter->cancelled)
            throw glinta::CancelledError();
        cancel.throwIfCancelled();
    }

    // Moves the time on and ends, in deadline order (then in the order they began), every sleep it passes.
    void advance(std::chrono::milliseconds by)
    {
        Q_ASSERT(by.count() >= 0);
        m_now = m_now.addMSecs(by.count());
        m_elapsed += by;
        std::stable_sort(m_waiters.begin(), m_waiters.end(),
                         [](const auto &a, const auto &b) { return a->deadline < b->deadline; });
        QList<std::shared_ptr<Waiter>> waiting;
        for (const auto &waiter : std::as_const(m_waiters)) {
            if (waiter->settled)
                continue;
            if (waiter->deadline <= m_elapsed)
                settle(waiter, false);
            else
                waiting.append(waiter);
        }
        m_waiters = std::move(waiting);
    }

    qsizetype pendingSleeps() const
    {
        return std::count_if(m_waiters.cbegin(), m_waiters.cend(), [](const auto &w) { return !w->settled; });
    }
    QList<std::chrono::milliseconds> sleepDurations() const { return m_durations; }

private:
    struct Waiter
    {
        std::chrono::milliseconds deadline{0};
        std::coroutine_handle<> handle;
        bool settled = false;
        bool cancelled = false;
    };

    struct Suspend
    {
        Waiter &waiter;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle) const noexcept { waiter.handle = handle; }
        void await_resume() const noexcept {}
    };

    // Posted to the application rather than to the clock, so that a sleeper outlives the clock; posted
    // events keep their order, so sleeps end in the order they are settled.
    static void settle(const std::shared_ptr<Waiter> &waiter, bool cancelled)
    {
        if (std::exchange(waiter->settled, true))
            return;
        waiter->cancelled = cancelled;
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [waiter] {
                if (const auto handle = std::exchange(waiter->handle, {}))
                    handle.resume();
            },
            Qt::QueuedConnection);
    }

    QDateTime m_now{QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc()};
    std::chrono::milliseconds m_elapsed{0};
    QList<std::shared_ptr<Waiter>> m_waiters;
    QList<std::chrono::milliseconds> m_durations;
};
