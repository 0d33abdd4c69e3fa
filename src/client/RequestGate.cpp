#include "client/RequestGate.h"

#include "client/TransportError.h"

#include <QCoreApplication>
#include <QTimer>

#include <coroutine>
#include <deque>
#include <utility>

namespace glinta {

namespace {

struct Waiter
{
    enum class Outcome
    {
        waiting,
        admitted,
        timedOut,
        cancelled,
    };
    Outcome outcome = Outcome::waiting;
    std::coroutine_handle<> handle;
};

// Resumes from the event loop, never inside the call that decided the outcome.
void settle(const std::shared_ptr<Waiter> &waiter, Waiter::Outcome outcome)
{
    if (waiter->outcome != Waiter::Outcome::waiting)
        return;
    waiter->outcome = outcome;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [waiter] {
            if (const auto handle = std::exchange(waiter->handle, {}))
                handle.resume();
        },
        Qt::QueuedConnection);
}

struct Suspend
{
    Waiter &waiter;
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> handle) const noexcept { waiter.handle = handle; }
    void await_resume() const noexcept {}
};

} // namespace

struct RequestGateState
{
    bool busy = false;
    std::deque<std::shared_ptr<Waiter>> queue;

    void release()
    {
        while (!queue.empty()) {
            const std::shared_ptr<Waiter> next = queue.front();
            queue.pop_front();
            if (next->outcome == Waiter::Outcome::waiting) {
                settle(next, Waiter::Outcome::admitted);
                return;
            }
        }
        busy = false;
    }
};

RequestGate::Permit &RequestGate::Permit::operator=(Permit &&other) noexcept
{
    if (this != &other) {
        release();
        m_state = std::move(other.m_state);
    }
    return *this;
}

RequestGate::Permit::~Permit()
{
    release();
}

void RequestGate::Permit::release()
{
    if (const auto state = std::exchange(m_state, {}))
        state->release();
}

RequestGate::RequestGate() : m_state(std::make_shared<RequestGateState>()) {}

QCoro::Task<RequestGate::Permit> RequestGate::enter(std::chrono::milliseconds timeout,
                                                    CancellationToken cancel) const
{
    cancel.throwIfCancelled();
    const std::shared_ptr<RequestGateState> state = m_state;
    if (!state->busy) {
        state->busy = true;
        co_return Permit(state);
    }

    const auto waiter = std::make_shared<Waiter>();
    state->queue.push_back(waiter);
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [waiter] { settle(waiter, Waiter::Outcome::timedOut); });
    timer.start(timeout);
    const auto registration = cancel.onCancel([waiter] { settle(waiter, Waiter::Outcome::cancelled); });

    co_await Suspend{*waiter};
    switch (waiter->outcome) {
    case Waiter::Outcome::admitted:
        co_return Permit(state);
    case Waiter::Outcome::timedOut:
        throw TransportError::timedOut();
    case Waiter::Outcome::cancelled:
    case Waiter::Outcome::waiting:
        break;
    }
    throw CancelledError();
}

} // namespace glinta
