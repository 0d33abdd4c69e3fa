#include "support/Cancellation.h"

#include <QList>

#include <utility>

using namespace Qt::StringLiterals;

namespace glinta {

struct CancellationState
{
    bool cancelled = false;
    int nextId = 1;
    QList<std::pair<int, std::function<void()>>> callbacks;
};

QString CancelledError::description() const
{
    return u"The operation was cancelled."_s;
}

CancellationToken::Registration::Registration(std::weak_ptr<CancellationState> state, int id)
    : m_state(std::move(state)), m_id(id)
{}

CancellationToken::Registration::Registration(Registration &&other) noexcept
    : m_state(std::move(other.m_state)), m_id(std::exchange(other.m_id, 0))
{}

CancellationToken::Registration &CancellationToken::Registration::operator=(Registration &&other) noexcept
{
    if (this != &other) {
        reset();
        m_state = std::move(other.m_state);
        m_id = std::exchange(other.m_id, 0);
    }
    return *this;
}

CancellationToken::Registration::~Registration()
{
    reset();
}

void CancellationToken::Registration::reset()
{
    if (const auto state = m_state.lock()) {
        state->callbacks.removeIf([id = m_id](const auto &entry) { return entry.first == id; });
    }
    m_state.reset();
    m_id = 0;
}

CancellationToken::CancellationToken() : m_state(std::make_shared<CancellationState>()) {}

void CancellationToken::cancel() const
{
    if (m_state->cancelled)
        return;
    m_state->cancelled = true;
    // A callback may drop its own registration (or others) while it runs.
    const auto callbacks = std::exchange(m_state->callbacks, {});
    for (const auto &entry : callbacks)
        entry.second();
}

bool CancellationToken::isCancelled() const
{
    return m_state->cancelled;
}

void CancellationToken::throwIfCancelled() const
{
    if (m_state->cancelled)
        throw CancelledError();
}

CancellationToken::Registration CancellationToken::onCancel(std::function<void()> callback) const
{
    if (m_state->cancelled) {
        callback();
        return {};
    }
    const int id = m_state->nextId++;
    m_state->callbacks.append({id, std::move(callback)});
    return Registration(m_state, id);
}

} // namespace glinta
