#pragma once

#include "support/Error.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringView>
#include <QUrl>

#include <optional>

namespace glinta {

// One release offered by the update feed (an RSS appcast in the update framework's format).
struct AppcastItem
{
    QString title;
    // sparkle:version: the build number, what versions are compared by.
    QString version;
    // sparkle:shortVersionString, or the build number when the feed gives none: what the user sees.
    QString displayVersionString;
    // Where "Install Update" takes the user: the item's link, else its enclosure's url.
    QUrl downloadPage;
    // The item's description (HTML), and/or where fuller notes live.
    QString releaseNotes;
    QUrl releaseNotesLink;

    friend bool operator==(const AppcastItem &, const AppcastItem &) = default;
};

// A feed that is not an appcast: not XML, no channel, an item without a version.
class AppcastError : public Error
{
public:
    explicit AppcastError(QString problem) : m_problem(std::move(problem)) {}
    QString description() const override;

private:
    QString m_problem;
};

// Far above any real feed; a larger one is refused rather than read into memory.
inline constexpr qsizetype maximumAppcastSize = 4 * 1024 * 1024;

// The items in feed order. Throws AppcastError.
QList<AppcastItem> parseAppcast(const QByteArray &feed);

// Compares versions as the update framework does: numeric runs by value ("10" after "9"), other runs
// as text, a missing part older than a present one ("1.3" before "1.3.1"). Negative, zero or positive.
int compareVersions(QStringView a, QStringView b);

// The newest item newer than `runningBuild`, if any.
std::optional<AppcastItem> newestUpdate(const QList<AppcastItem> &items, QStringView runningBuild);

} // namespace glinta
