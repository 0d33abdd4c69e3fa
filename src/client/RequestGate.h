#pragma once

#include "support/Cancellation.h"

#include <qcoro/qcorotask.h>

#include <chrono>
#include <memory>

namespace glinta {

struct RequestGateState;

// Lets one request to the service be in flight at a time, in the order they asked. Waiting counts
// against the request's own time-out: one that could not go out in time never goes out later, so an
// outage does not end in a burst of stale requests.
class RequestGate
{
public:
    // Held while the request is in flight; the next one may go when it is gone.
    class Permit
    {
    public:
        Permit() = default;
        Permit(Permit &&other) noexcept = default;
        Permit &operator=(Permit &&other) noexcept;
        Permit(const Permit &) = delete;
        Permit &operator=(const Permit &) = delete;
        ~Permit();

    private:
        friend class RequestGate;
        explicit Permit(std::shared_ptr<RequestGateState> state) : m_state(std::move(state)) {}
        void release();

        std::shared_ptr<RequestGateState> m_state;
    };

    RequestGate();

    // Throws TransportError::timedOut() when no turn came within `timeout`, CancelledError on cancel.
    QCoro::Task<Permit> enter(std::chrono::milliseconds timeout, CancellationToken cancel) const;

private:
    std::shared_ptr<RequestGateState> m_state;
};

} // namespace glinta
