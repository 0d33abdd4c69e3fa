#pragma once

#include "support/Error.h"

#include <QLatin1StringView>
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

// Whether Glinta starts when the user logs in. On Linux that is an XDG autostart entry; nothing is
// cached, so every status() reads what is on disk now, including changes made by the desktop's own
// settings.
class LoginItem
{
public:
    enum class Status
    {
        notRegistered,
        enabled,
    };

    static constexpr QLatin1StringView fileName{"glinta.desktop"};

    // $XDG_CONFIG_HOME/autostart.
    static QString defaultDirectory();
    // The running program.
    static QString defaultProgram();

    explicit LoginItem(QString directory = defaultDirectory(), QString program = defaultProgram());

    QString directory() const { return m_directory; }
    QString program() const { return m_program; }
    QString filePath() const;

    Status status() const;
    // Writes the entry atomically, creating the directory when missing. Throws LoginItemError.
    void registerItem();
    // Removes the entry; one that is not there is success. Throws LoginItemError.
    void unregisterItem();

private:
    QString m_directory;
    QString m_program;
};

} // namespace glinta
