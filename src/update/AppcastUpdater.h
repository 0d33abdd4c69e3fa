#pragma once

#include "support/BuildInfo.h"
#include "support/Cancellation.h"
#include "update/AppcastItem.h"
#include "update/Updater.h"
#include "update/UserDriver.h"

#include <QNetworkRequest>
#include <QPointer>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace glinta {

class Clock;
class Preferences;

// Reads the build's appcast over HTTP(S), once a day on its own and whenever the user asks, and hands
// what it finds to the user driver. Remembers the version the user skipped and when it last checked.
class AppcastUpdater : public Updater
{
    Q_OBJECT

public:
    static constexpr std::chrono::hours checkInterval{24};
    // The first scheduled check of a launch waits this long at least, so that it never slows the start.
    static constexpr std::chrono::seconds firstCheckDelay{60};
    static constexpr std::chrono::seconds transferTimeout{60};

    // An empty or unusable `feed` (anything but an http or https address) checks nothing. Versions are
    // compared with `build`'s build number, as the feed's sparkle:version is one.
    AppcastUpdater(QNetworkAccessManager *network, QUrl feed, BuildInfo build, Preferences *preferences,
                   Clock *clock, UserDriver *driver, QObject *parent = nullptr);
    ~AppcastUpdater() override;

    bool canCheckForUpdates() const override;
    void checkForUpdates() override;

    // Begins the daily checks. The first is due a day after the last check of any launch.
    void start();

Q_SIGNALS:
    // The user chose to install: the application opens this page in the browser. A signal, because
    // opening a URL takes the GUI, which this library does not link.
    void installRequested(const QUrl &downloadPage);

private:
    // The outcome of one check: the newest update, or why there is none to tell of.
    struct CheckResult
    {
        std::optional<AppcastItem> update;
        std::optional<QString> failure;
    };

    void setBusy(bool busy);
    std::chrono::milliseconds firstDelay() const;
    void finishCheck(const UpdateState &state, const CheckResult &result);
    void handleChoice(const AppcastItem &update, UpdateChoice choice);

    static QCoro::Task<void> check(QPointer<AppcastUpdater> self, UpdateState state,
                                   CancellationToken cancel);
    static QCoro::Task<void> scheduleLoop(QPointer<AppcastUpdater> self, CancellationToken cancel);
    static QCoro::Task<QByteArray> fetchFeed(QNetworkAccessManager *network, QNetworkRequest request,
                                             CancellationToken cancel);

    QPointer<QNetworkAccessManager> m_network;
    QUrl m_feed;
    BuildInfo m_build;
    Preferences *m_preferences;
    Clock *m_clock;
    UserDriver *m_driver;
    // From a check's start until the user has answered the update it offered.
    bool m_busy = false;
    bool m_started = false;
    CancellationToken m_cancel;
};

} // namespace glinta
