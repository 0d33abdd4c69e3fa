#pragma once

#include "support/Error.h"

#include <functional>
#include <memory>

namespace glinta {

// Every layer lets this through without showing it: a cancelled operation is not a failure.
class CancelledError : public Error
{
public:
    QString description() const override;
};

struct CancellationState;

// QCoro tasks cannot be cancelled from outside, so long-running work carries one of these, checks it
// after every co_await and aborts what it has in flight when it fires. Copies share one state; all use
// is on one thread.
class CancellationToken
{
public:
    // Unregisters its callback when it goes out of scope.
    class Registration
    {
    public:
        Registration() = default;
        Registration(Registration &&other) noexcept;
        Registration &operator=(Registration &&other) noexcept;
        Registration(const Registration &) = delete;
        Registration &operator=(const Registration &) = delete;
        ~Registration();

    private:
        friend class CancellationToken;
        Registration(std::weak_ptr<CancellationState> state, int id);
        void reset();

        std::weak_ptr<CancellationState> m_state;
        int m_id = 0;
    };

    CancellationToken();

    void cancel() const;
    bool isCancelled() const;
    // Throws CancelledError once cancelled.
    void throwIfCancelled() const;
    // Runs `callback` on cancel(), or at once when already cancelled, while the registration lives.
    [[nodiscard]] Registration onCancel(std::function<void()> callback) const;

private:
    std::shared_ptr<CancellationState> m_state;
};

} // namespace glinta
