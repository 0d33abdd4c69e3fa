#pragma once

#include "ManualClock.h"
#include "MemoryKeychain.h"
#include "SimulatedService.h"
#include "client/LibreLinkUpClient.h"
#include "snapshot/SharedSnapshotStore.h"
#include "snapshot/WidgetReloader.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"

#include <QNetworkAccessManager>
#include <QSettings>
#include <QTest>

#include <memory>

class CountingReloader : public glinta::WidgetReloader
{
public:
    void reloadAllTimelines() override { ++reloads; }
    int reloads = 0;
};

// A started store over an in-process simulated service, with private settings, snapshot and keyring; a past
// session may have left its e-mail (not the password) and the app version the service asked for.
struct LiveStore
{
    explicit LiveStore(const QString &savedEmail = {}, const QString &appVersion = {},
                       const QString &snapshotParent = {})
    {
        service.addAccount(account());
        service.start();
        service.setNow(clock.now());
        QSettings seed(settingsPath(), QSettings::IniFormat);
        seed.setValue(u"lastLaunchedBuild"_qs, u"1"_qs); // the same build again: no widget reload
        if (!savedEmail.isEmpty())
            seed.setValue(u"libreLinkUpEmail"_qs, savedEmail);
        if (!appVersion.isEmpty())
            seed.setValue(u"serviceAppVersion"_qs, appVersion);
        seed.sync();
        client = std::make_unique<glinta::LibreLinkUpClient>(&network, service.endpoints(),
                                                             std::chrono::seconds(5));
        preferences = std::make_unique<glinta::Preferences>(
            std::make_unique<QSettings>(settingsPath(), QSettings::IniFormat));
        snapshots = std::make_unique<glinta::SharedSnapshotStore>(snapshotParent.isEmpty() ? dir.path()
                                                                                           : snapshotParent);
        restart();
    }
    ~LiveStore()
    {
        store.reset();
        QTest::qWait(10); // what the store had in flight ends before the network goes
    }

    // A new store over the same services and preferences, as a relaunch makes it; `trail` notes each status.
    void restart()
    {
        store.reset();
        store = std::make_unique<glinta::GlucoseStore>(
            glinta::GlucoseStore::Services{client.get(), &keychain, snapshots.get(), preferences.get(),
                                           &widgets, &clock, glinta::BuildInfo{u"1.3.5"_qs, u"1"_qs}});
        QObject::connect(store.get(), &glinta::GlucoseStore::statusChanged,
                         [this] { trail.append(show(store->status())); });
        store->start();
    }

    // "failed: <message>", "loggedOut", "connecting" or "active".
    static QString show(const glinta::GlucoseStore::Status &status)
    {
        static const QStringList names{u"failed: "_qs, u"loggedOut"_qs, u"connecting"_qs, u"active"_qs};
        return names.at(int(status.kind)) + status.message;
    }

    QString settingsPath() const { return dir.filePath(u"glinta.conf"_qs); }

    static glinta::sim::SimAccount account() { return glinta::sim::SimulatedService::demoAccount(); }

    QTemporaryDir dir;
    ManualClock clock;
    glinta::sim::SimulatedService service;
    QNetworkAccessManager network;
    MemoryKeychain keychain;
    CountingReloader widgets;
    std::unique_ptr<glinta::LibreLinkUpClient> client;
    std::unique_ptr<glinta::Preferences> preferences;
    std::unique_ptr<glinta::SharedSnapshotStore> snapshots;
    std::unique_ptr<glinta::GlucoseStore> store;
    QStringList trail;
};
