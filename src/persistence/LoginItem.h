#pragma once

#include "support/Error.h"

#include <QString>

#include <utility>

namespace glinta {

// A change to the login item that the system refused; the description is the system's reason
// ("Permission denied").
class LoginItemError : public Error
{
public:
    explicit LoginItemError(QString reason) : m_reason(std::move(reason)) {}

    QString description() const override { return m_reason; }

private:
    QString m_reason;
};

// Whether Glinta starts when the user logs in. Nothing is cached, so every status() asks the system now,
// including about changes made in the desktop's own settings. Where the side has no login item it can
// manage, the status is notAvailable and every change is refused.
class LoginItem
{
public:
    enum class Status
    {
        notAvailable,
        notRegistered,
        enabled,
    };

    // The user's own login items, starting the running program.
    LoginItem();
    // Login items kept in `directory` instead, starting `program`: for tests.
    LoginItem(QString directory, QString program);

    // The file that holds the item; empty where there is none.
    QString filePath() const;

    Status status() const;
    // Creates the item, or switches it on again. Throws LoginItemError.
    void registerItem();
    // Removes the item; one that is not there is success. Throws LoginItemError.
    void unregisterItem();

private:
    QString m_directory;
    QString m_program;
};

} // namespace glinta
