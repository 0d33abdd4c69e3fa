#include "update/AppcastUpdater.h"

#include "client/GuardedTransfer.h"
#include "store/Preferences.h"
#include "support/Clock.h"
#include "support/Logging.h"

#include <QNetworkAccessManager>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

// Why a feed could not be fetched, as a sentence for people. It names the server's answer or Qt's
// transport error, never the feed's address.
class FeedError : public Error
{
public:
    explicit FeedError(QString reason) : m_reason(std::move(reason)) {}
    QString description() const override { return m_reason; }

private:
    QString m_reason;
};

bool isUsableFeed(const QUrl &feed)
{
    return feed.isValid() && (feed.scheme() == u"https" || feed.scheme() == u"http") &&
           !feed.host().isEmpty();
}

// "The update server …." becomes the clause after "Glinta could not check for updates: ".
QString userMessage(const QString &reason)
{
    QString clause = reason;
    if (clause.endsWith(u'.'))
        clause.chop(1);
    if (!clause.isEmpty())
        clause[0] = clause[0].toLower();
    return u"Glinta could not check for updates: "_s + clause + u'.';
}

} // namespace

AppcastUpdater::AppcastUpdater(QNetworkAccessManager *network, QUrl feed, BuildInfo build,
                               Preferences *preferences, Clock *clock, UserDriver *driver, QObject *parent)
    : Updater(parent), m_network(network), m_feed(isUsableFeed(feed) ? std::move(feed) : QUrl()),
      m_build(std::move(build)), m_preferences(preferences), m_clock(clock), m_driver(driver)
{}

AppcastUpdater::~AppcastUpdater()
{
    // Ends the schedule and aborts a download in flight; an answer the driver gives later finds nobody.
    m_cancel.cancel();
}

bool AppcastUpdater::canCheckForUpdates() const
{
    return !m_feed.isEmpty() && !m_busy;
}

void AppcastUpdater::checkForUpdates()
{
    if (!canCheckForUpdates())
        return;
    setBusy(true);
    m_driver->showCheckingForUpdates();
    check(this, UpdateState{true}, m_cancel);
}

void AppcastUpdater::start()
{
    if (m_feed.isEmpty() || m_started)
        return;
    m_started = true;
    scheduleLoop(this, m_cancel);
}

void AppcastUpdater::setBusy(bool busy)
{
    const bool could = canCheckForUpdates();
    m_busy = busy;
    if (canCheckForUpdates() != could)
        Q_EMIT canCheckForUpdatesChanged();
}

std::chrono::milliseconds AppcastUpdater::firstDelay() const
{
    const std::optional<QDateTime> last = m_preferences->lastUpdateCheckTime();
    const QDateTime now = m_clock->now();
    // A last check in the future means the clock was set back; checking soon puts that right.
    if (!last || *last > now)
        return firstCheckDelay;
    const std::chrono::milliseconds since(last->msecsTo(now));
    if (since >= checkInterval)
        return firstCheckDelay;
    return std::max<std::chrono::milliseconds>(checkInterval - since, firstCheckDelay);
}

QCoro::Task<void> AppcastUpdater::scheduleLoop(QPointer<AppcastUpdater> self, CancellationToken cancel)
{
    std::chrono::milliseconds wait = self->firstDelay();
    for (;;) {
        if (!self || cancel.isCancelled())
            co_return;
        try {
            co_await self->m_clock->sleep(wait, cancel);
        } catch (const CancelledError &) {
            co_return;
        }
        if (!self || cancel.isCancelled())
            co_return;
        wait = checkInterval;
        if (self->m_busy) {
            qCInfo(lcUpdates, "Scheduled update check passed over; another check is still open");
            continue;
        }
        self->setBusy(true);
        co_await check(self, UpdateState{false}, cancel);
    }
}

QCoro::Task<void> AppcastUpdater::check(QPointer<AppcastUpdater> self, UpdateState state,
                                        CancellationToken cancel)
{
    QNetworkRequest request(self->m_feed);
    request.setTransferTimeout(static_cast<int>(std::chrono::milliseconds(transferTimeout).count()));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setRawHeader("Accept", "application/rss+xml, application/xml;q=0.9, */*;q=0.8");
    request.setHeader(QNetworkRequest::UserAgentHeader, QString(u"Glinta/"_s + self->m_build.shortVersion));
    qCInfo(lcUpdates, "Checking %s for updates (%s)", qUtf8Printable(self->m_feed.host()),
           state.userInitiated ? "asked by the user" : "daily check");

    CheckResult result;
    try {
        const QByteArray feed = co_await fetchFeed(self->m_network, std::move(request), cancel);
        if (!self || cancel.isCancelled())
            co_return;
        result.update = newestUpdate(parseAppcast(feed), self->m_build.buildNumber);
    } catch (const CancelledError &) {
        co_return;
    } catch (const Error &error) {
        result.failure = error.description();
    } catch (const std::exception &error) {
        result.failure = QString::fromLocal8Bit(error.what());
    }
    if (!self || cancel.isCancelled())
        co_return;
    self->finishCheck(state, result);
}

QCoro::Task<QByteArray> AppcastUpdater::fetchFeed(QNetworkAccessManager *network, QNetworkRequest request,
                                                  CancellationToken cancel)
{
    const TransferOutcome outcome =
        co_await guardedTransfer(network, std::move(request), QByteArray(), maximumAppcastSize, cancel);

    const QString tooLarge = u"The update feed is larger than 4 MiB."_s;
    switch (outcome.error) {
    case QNetworkReply::NoError:
        break;
    case QNetworkReply::OperationCanceledError:
        if (outcome.tooLarge)
            throw FeedError(tooLarge);
        throw FeedError(
            u"The update server did not answer within %1 seconds."_s.arg(transferTimeout.count()));
    case QNetworkReply::SslHandshakeFailedError:
        if (outcome.tlsProblems.isEmpty())
            throw FeedError(u"A secure connection to the update server could not be made."_s);
        throw FeedError(u"A secure connection to the update server could not be made ("_s +
                        outcome.tlsProblems.join(u"; "_s) + u")."_s);
    case QNetworkReply::TooManyRedirectsError:
        throw FeedError(u"The update server redirected too many times."_s);
    case QNetworkReply::InsecureRedirectError:
        throw FeedError(u"The update server redirected to an insecure address."_s);
    default:
        // Qt's text for an HTTP error names the address; the status below says it without.
        if (!isHttpStatusError(outcome.error) || !outcome.httpStatus)
            throw FeedError(u"The update server could not be reached ("_s + outcome.errorString + u")."_s);
        break;
    }

    // No status at all (the error said nothing either) reads as status 0, which is no success.
    const int status = outcome.httpStatus.value_or(0);
    if (status < 200 || status > 299)
        throw FeedError(u"The update server answered with HTTP status %1."_s.arg(status));
    if (outcome.tooLarge)
        throw FeedError(tooLarge);
    co_return outcome.body;
}

void AppcastUpdater::finishCheck(const UpdateState &state, const CheckResult &result)
{
    m_preferences->setLastUpdateCheckTime(m_clock->now());

    if (result.failure) {
        const QString message = userMessage(*result.failure);
        qCWarning(lcUpdates, "Update check failed: %s", qUtf8Printable(*result.failure));
        setBusy(false);
        if (state.userInitiated)
            m_driver->showUpdaterError(message);
        return;
    }

    if (!result.update) {
        qCInfo(lcUpdates, "No update newer than build %s", qUtf8Printable(m_build.buildNumber));
        setBusy(false);
        if (state.userInitiated)
            m_driver->showUpdateNotFound();
        return;
    }

    const AppcastItem &update = *result.update;
    // Only the daily check respects a skip: someone who asks wants to see what there is.
    const std::optional<QString> skipped = m_preferences->skippedVersion();
    if (!state.userInitiated && skipped && compareVersions(update.version, *skipped) <= 0) {
        qCInfo(lcUpdates, "Update %s was skipped by the user; not offering it",
               qUtf8Printable(update.displayVersionString));
        setBusy(false);
        return;
    }

    qCInfo(lcUpdates, "Offering update %s (build %s)", qUtf8Printable(update.displayVersionString),
           qUtf8Printable(update.version));
    const auto answered = std::make_shared<bool>(false);
    m_driver->showUpdateFound(update, state, [self = QPointer(this), update, answered](UpdateChoice choice) {
        if (std::exchange(*answered, true) || !self)
            return;
        self->handleChoice(update, choice);
    });
}

void AppcastUpdater::handleChoice(const AppcastItem &update, UpdateChoice choice)
{
    // Free again before acting: a slot of installRequested may well start another check.
    setBusy(false);
    switch (choice) {
    case UpdateChoice::install:
        if (update.downloadPage.isEmpty()) {
            qCWarning(lcUpdates, "Update %s names no download page",
                      qUtf8Printable(update.displayVersionString));
            return;
        }
        qCInfo(lcUpdates, "Opening the download page of update %s",
               qUtf8Printable(update.displayVersionString));
        Q_EMIT installRequested(update.downloadPage);
        return;
    case UpdateChoice::skip:
        qCInfo(lcUpdates, "The user skipped update %s", qUtf8Printable(update.displayVersionString));
        m_preferences->setSkippedVersion(update.version);
        return;
    case UpdateChoice::remindLater:
        return;
    }
}

} // namespace glinta
