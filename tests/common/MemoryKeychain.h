#pragma once

#include "persistence/KeychainStore.h"

#include <QHash>

#include <qcoro/qcorotimer.h>

// Passwords in memory, for runs that need no real keyring. It can be locked, and be slow to save as a
// keyring that shows its prompt is.
class MemoryKeychain : public glinta::KeychainStore
{
public:
    QCoro::Task<void> savePassword(QString password, QString account) const override
    {
        throwIfLocked();
        saving = true;
        if (saveDelay.count() > 0)
            co_await QCoro::sleepFor(saveDelay);
        m_passwords.insert(account, password);
        saving = false;
    }
    QCoro::Task<std::optional<QString>> readPassword(QString account) const override
    {
        throwIfLocked();
        // A copy: QCoro 0.8 moves from an lvalue given to co_return.
        const auto found = m_passwords.constFind(account);
        co_return found == m_passwords.constEnd() ? std::nullopt : std::optional<QString>(*found);
    }
    QCoro::Task<void> deletePassword(QString account) const override
    {
        throwIfLocked();
        m_passwords.remove(account);
        co_return;
    }

    bool locked = false;
    std::chrono::milliseconds saveDelay{0};
    mutable bool saving = false;

private:
    void throwIfLocked() const
    {
        if (locked)
            throw glinta::KeychainError::locked();
    }

    mutable QHash<QString, QString> m_passwords;
};
