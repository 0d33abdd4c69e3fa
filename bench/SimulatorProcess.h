#pragma once

// glinta-sim in a process of its own, so a benchmark's CPU time is the client's alone.
#include "client/ServiceEndpoints.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QString>
#include <QUrl>

#include <chrono>

#include <cstdio>
#include <cstdlib>

class SimulatorProcess
{
public:
    SimulatorProcess()
    {
        m_process.start(QStringLiteral(GLINTA_SIM_PATH), {QStringLiteral("--port"), QStringLiteral("0")});
        if (!m_process.waitForReadyRead(10000)) {
            std::fprintf(stderr, "glinta-sim did not start\n");
            std::exit(1);
        }
        // "glinta-sim listening on http://127.0.0.1:PORT/"
        const QUrl base(QString::fromUtf8(m_process.readLine()).trimmed().section(u' ', -1));
        m_endpoints.defaultBaseUrl = base;
        for (const QString &code : glinta::ServiceEndpoints::regionCodes()) {
            QUrl region = base;
            region.setPath(u'/' + code + u'/');
            m_endpoints.regionBaseUrls.insert(code, region);
        }
    }
    ~SimulatorProcess()
    {
        m_process.terminate();
        m_process.waitForFinished(5000);
    }
    SimulatorProcess(const SimulatorProcess &) = delete;
    SimulatorProcess &operator=(const SimulatorProcess &) = delete;

    const glinta::ServiceEndpoints &endpoints() const { return m_endpoints; }

    // Moves the service's clock on, so that the next read brings newer readings; true when it did.
    bool advance(QNetworkAccessManager &network, std::chrono::seconds by)
    {
        QNetworkRequest request(m_endpoints.defaultBaseUrl.resolved(QUrl(QStringLiteral("_sim/clock"))));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        const QJsonObject body{{QStringLiteral("advanceSeconds"), qint64(by.count())}};
        QNetworkReply *reply = network.post(request, QJsonDocument(body).toJson());
        QElapsedTimer waited;
        waited.start();
        while (!reply->isFinished() && waited.elapsed() < 10000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        const bool ok = reply->isFinished() && reply->error() == QNetworkReply::NoError;
        reply->deleteLater();
        return ok;
    }

private:
    QProcess m_process;
    glinta::ServiceEndpoints m_endpoints;
};
