#pragma once

#include "client/ServiceEndpoints.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTest>

// This build's glinta with a profile of its own and a simulated service: never the user's settings or data.
class GlintaProcess
{
public:
    GlintaProcess()
    {
        for (const QString &directory : {u"config/nordvik.com"_qs, u"data"_qs, u"run"_qs})
            QDir(m_home.path()).mkpath(directory);
        QFile::setPermissions(m_home.filePath(u"run"_qs),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_qs, m_home.filePath(u"config"_qs));
        environment.insert(u"XDG_DATA_HOME"_qs, m_home.filePath(u"data"_qs));
        environment.insert(u"XDG_RUNTIME_DIR"_qs, m_home.filePath(u"run"_qs));
        environment.insert(u"QT_QPA_PLATFORM"_qs, u"xcb"_qs);
        environment.insert(u"ASAN_OPTIONS"_qs, u"detect_leaks=0"_qs);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~GlintaProcess() { stop(); }

    void useService(const glinta::ServiceEndpoints &endpoints)
    {
        QJsonObject regions;
        for (auto it = endpoints.regionBaseUrls.cbegin(); it != endpoints.regionBaseUrls.cend(); ++it)
            regions.insert(it.key(), it.value().toString());
        QFile file(configDirectory() + u"/service-address.json"_qs);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QJsonDocument(QJsonObject{{u"defaultBaseURL"_qs, endpoints.defaultBaseUrl.toString()},
                                             {u"regions"_qs, regions}})
                       .toJson());
    }

    void setPreference(const QString &key, const QVariant &value)
    {
        QSettings(configDirectory() + u"/glinta.conf"_qs, QSettings::IniFormat).setValue(key, value);
    }

    QString configDirectory() const { return m_home.filePath(u"config/nordvik.com"_qs); }
    QString snapshotPath() const
    {
        return m_home.filePath(u"data/K3R8WQ5N2D.com.nordvik.glinta/glucose-snapshot.json"_qs);
    }

    // `wrapper` runs in front of it.
    void start(const QStringList &wrapper = {})
    {
        const QStringList command = wrapper + QStringList{QStringLiteral(GLINTA_PROGRAM)};
        m_process.setProcessEnvironment(environment);
        m_process.start(command.first(), command.mid(1));
        QVERIFY2(m_process.waitForStarted(10000), qPrintable(m_process.errorString()));
    }

    QString output()
    {
        m_output += QString::fromUtf8(m_process.readAll());
        return m_output;
    }

    QProcess &process() { return m_process; }

    void stop()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(10000)) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    QProcessEnvironment environment;

private:
    QTemporaryDir m_home;
    QProcess m_process;
    QString m_output;
};
