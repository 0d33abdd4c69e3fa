#pragma once

#include "support/Cancellation.h"

#include <QByteArray>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QString>
#include <QStringList>

#include <qcoro/qcorotask.h>

#include <optional>

class QNetworkAccessManager;

namespace glinta {

// What came back from one request, for the caller's own error mapping.
struct TransferOutcome
{
    // The reply's. OperationCanceledError here always means the transfer time-out: an abort for the
    // size limit sets `tooLarge`, one for cancellation throws.
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    // Qt's text; it may name the address, so the caller decides whether to show it.
    QString errorString;
    // Absent when no HTTP answer came.
    std::optional<int> httpStatus;
    // The size limit stopped the transfer, or the whole body arrived and is over it.
    bool tooLarge = false;
    // The "Retry-After" header, when the answer had one.
    std::optional<QByteArray> retryAfter;
    QStringList tlsProblems;
    // Empty when `tooLarge`; only meaningful when the request succeeded.
    QByteArray body;
};

// Errors Qt raises for an HTTP status it did receive; those are judged by the status, not the error.
bool isHttpStatusError(QNetworkReply::NetworkError error);

// Sends `request` on `network`, a GET when `body` is null and a POST of it otherwise, and reads at most
// `maximumSize` bytes of the answer. A transfer that times out or is aborted closes every connection of
// `network`, so give each service a manager of its own. Throws CancelledError when `cancel` fires and when
// `network` is gone; every other way it can end is told in the outcome.
QCoro::Task<TransferOutcome> guardedTransfer(QNetworkAccessManager *network, QNetworkRequest request,
                                             QByteArray body, qint64 maximumSize, CancellationToken cancel);

} // namespace glinta
