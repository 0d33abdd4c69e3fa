#pragma once

// glinta-sim in a process of its own, so a benchmark's CPU time is the client's alone.
#include "ServiceEndpoints.h"

#include <QProcess>
#include <QString>
#include <QUrl>

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

private:
    QProcess m_process;
    glinta::ServiceEndpoints m_endpoints;
};
