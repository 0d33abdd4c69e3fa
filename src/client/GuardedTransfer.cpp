#include "client/GuardedTransfer.h"

#include <QNetworkAccessManager>
#include <QSslError>

#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace glinta {

namespace {

struct DeleteLater
{
    void operator()(QObject *object) const { object->deleteLater(); }
};

} // namespace

bool isHttpStatusError(QNetworkReply::NetworkError error)
{
    return (error >= QNetworkReply::ContentAccessDenied && error <= QNetworkReply::UnknownContentError) ||
           error == QNetworkReply::ProtocolInvalidOperationError ||
           (error >= QNetworkReply::InternalServerError && error <= QNetworkReply::UnknownServerError);
}

QCoro::Task<TransferOutcome> guardedTransfer(QNetworkAccessManager *network, QNetworkRequest request,
                                             QByteArray body, qint64 maximumSize, CancellationToken cancel)
{
    cancel.throwIfCancelled();
    // Only when the application is shutting down.
    if (!network)
        throw CancelledError();

    QNetworkReply *raw = body.isNull() ? network->get(request) : network->post(request, body);
    const std::unique_ptr<QNetworkReply, DeleteLater> reply(raw);

    // Qt reports a transfer time-out and abort() alike, so remember why we aborted.
    enum class Abort
    {
        none,
        cancelled,
        tooLarge,
    };
    Abort aborted = Abort::none;
    // Deferred, so that the coroutine never resumes inside a signal emission or inside cancel().
    const auto abortLater = [raw, &aborted](Abort reason) {
        if (aborted != Abort::none)
            return;
        aborted = reason;
        QMetaObject::invokeMethod(raw, &QNetworkReply::abort, Qt::QueuedConnection);
    };
    const auto limitSize = [&abortLater, maximumSize](qint64 size) {
        if (size > maximumSize)
            abortLater(Abort::tooLarge);
    };
    TransferOutcome outcome;

    const auto registration = cancel.onCancel([&abortLater] { abortLater(Abort::cancelled); });
    QObject::connect(raw, &QNetworkReply::metaDataChanged, raw, [raw, &limitSize] {
        limitSize(raw->header(QNetworkRequest::ContentLengthHeader).toLongLong());
    });
    QObject::connect(raw, &QNetworkReply::downloadProgress, raw,
                     [&limitSize](qint64 received, qint64) { limitSize(received); });
    QObject::connect(raw, &QNetworkReply::sslErrors, raw, [&outcome](const QList<QSslError> &errors) {
        for (const QSslError &error : errors)
            outcome.tlsProblems.append(error.errorString());
    });

    co_await raw;
    QObject::disconnect(raw, nullptr, nullptr, nullptr);
    // Qt 6.4 keeps the connection of a request that timed out or was aborted open, and counted as busy,
    // until the server closes it: a silent server soon holds all six it allows per host, and nothing goes
    // out any more. Dropping the connection cache closes them.
    if ((aborted != Abort::none || raw->error() == QNetworkReply::OperationCanceledError) && network)
        network->clearConnectionCache();
    cancel.throwIfCancelled();

    outcome.error = raw->error();
    outcome.errorString = raw->errorString();
    const QVariant status = raw->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid())
        outcome.httpStatus = status.toInt();
    if (raw->hasRawHeader("Retry-After"))
        outcome.retryAfter = raw->rawHeader("Retry-After");
    // The whole body can arrive before a deferred abort stops it.
    outcome.tooLarge = aborted == Abort::tooLarge || raw->bytesAvailable() > maximumSize;
    if (!outcome.tooLarge)
        outcome.body = raw->readAll();
    co_return outcome;
}

} // namespace glinta
