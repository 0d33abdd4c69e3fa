#pragma once

#include "CountingReloader.h"
#include "ManualClock.h"
#include "MemoryKeychain.h"
#include "SimulatedService.h"
#include "client/LibreLinkUpClient.h"
#include "snapshot/SharedSnapshotStore.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"

#include <QNetworkAccessManager>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// A real, started store over an in-process simulated service, for views that must see every status:
// signIn() with the demo account makes it active, a wrong password failed, a delayed login holds it in
// connecting. Nothing of the user's is touched: settings, snapshot and keyring are private.
struct LiveStore
{
    LiveStore()
    {
        service.addAccount(glinta::sim::SimulatedService::demoAccount());
        service.start();
        service.setNow(clock.now());
        QSettings seed(settingsPath(), QSettings::IniFormat);
        seed.setValue(QStringLiteral("lastLaunchedBuild"), QStringLiteral("1"));
        seed.sync();
        client = std::make_unique<glinta::LibreLinkUpClient>(&network, service.endpoints(),
                                                             std::chrono::seconds(5));
        preferences = std::make_unique<glinta::Preferences>(
            std::make_unique<QSettings>(settingsPath(), QSettings::IniFormat));
        snapshots = std::make_unique<glinta::SharedSnapshotStore>(dir.path());
        store = std::make_unique<glinta::GlucoseStore>(glinta::GlucoseStore::Services{
            client.get(), &keychain, snapshots.get(), preferences.get(), &widgets, &clock,
            glinta::BuildInfo{QStringLiteral("1.3.5"), QStringLiteral("1")}});
        store->start();
    }
    ~LiveStore()
    {
        store.reset();
        QTest::qWait(10); // what the store had in flight ends before the network goes
    }

    QString settingsPath() const { return dir.filePath(QStringLiteral("glinta.conf")); }

    glinta::sim::SimAccount account() const { return glinta::sim::SimulatedService::demoAccount(); }

    QTemporaryDir dir;
    // Manual: nothing polls again until a test moves the time on.
    ManualClock clock{ManualClock::Mode::manual};
    glinta::sim::SimulatedService service;
    QNetworkAccessManager network;
    MemoryKeychain keychain;
    CountingReloader widgets;
    std::unique_ptr<glinta::LibreLinkUpClient> client;
    std::unique_ptr<glinta::Preferences> preferences;
    std::unique_ptr<glinta::SharedSnapshotStore> snapshots;
    std::unique_ptr<glinta::GlucoseStore> store;
};
