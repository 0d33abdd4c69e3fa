#pragma once

#include "support/Error.h"

#include <QLatin1StringView>
#include <QString>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

namespace glinta {

// A keyring operation that failed. The text is the keyring's own message, so that a user who searches
// for it finds the keyring's documentation rather than ours.
class KeychainError : public Error
{
public:
    // Codes of our own, beside QtKeychain's QKeychain::Error values (all of which are non-negative).
    static constexpr int timedOutCode = -1;
    static constexpr int lockedCode = -2;

    static KeychainError unexpectedStatus(int code, QString message);
    static KeychainError timedOut();
    static KeychainError locked();

    int code() const { return m_code; }
    QString description() const override;

private:
    KeychainError(int code, QString message);

    int m_code;
    QString m_message;
};

// The account's password in the desktop keyring (the Secret Service), one item per service and account.
// Holds no state beyond its settings; an operation outlives the store that started it.
class KeychainStore
{
public:
    static constexpr QLatin1StringView defaultService{"com.nordvik.glinta.librelinkup"};

    explicit KeychainStore(QString service = QString(defaultService),
                           std::chrono::milliseconds timeout = std::chrono::seconds(25));
    virtual ~KeychainStore();

    // Replaces the account's item, or adds it when there is none.
    virtual QCoro::Task<void> savePassword(QString password, QString account) const;
    // None when the account has no item, or its data is not UTF-8 text.
    virtual QCoro::Task<std::optional<QString>> readPassword(QString account) const;
    // Deleting a missing item succeeds.
    virtual QCoro::Task<void> deletePassword(QString account) const;

    QString service() const { return m_service; }
    std::chrono::milliseconds timeout() const { return m_timeout; }

private:
    QString m_service;
    std::chrono::milliseconds m_timeout;
};

} // namespace glinta
