#pragma once

#include "persistence/KeychainStore.h"

#include <QHash>

// Passwords in memory, for runs that need no real keyring.
class MemoryKeychain : public glinta::KeychainStore
{
public:
    QCoro::Task<void> savePassword(QString password, QString account) const override
    {
        m_passwords.insert(account, password);
        co_return;
    }
    QCoro::Task<std::optional<QString>> readPassword(QString account) const override
    {
        // A copy: QCoro 0.8 moves from an lvalue given to co_return.
        const auto found = m_passwords.constFind(account);
        co_return found == m_passwords.constEnd() ? std::nullopt : std::optional<QString>(*found);
    }
    QCoro::Task<void> deletePassword(QString account) const override
    {
        m_passwords.remove(account);
        co_return;
    }

private:
    mutable QHash<QString, QString> m_passwords;
};
