#include "app/GlintaApp.h"
#include "app/SingleInstance.h"
#include "app/StatusItem.h"
#include "support/BuildInfo.h"
#include "support/QuitSignals.h"
#include "uikit/Symbols.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// Wayland gives a client no say over where a popup goes, so Glinta runs on X (XWayland there). Returns
// false when there is no display at all.
bool choosePlatform(int argc, char *argv[])
{
    if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        return true;
    // Help and version need no display.
    for (int i = 1; i < argc; ++i) {
        const QByteArrayView argument(argv[i]);
        if (argument == "-h" || argument == "--help" || argument == "--help-all" || argument == "-v" ||
            argument == "--version") {
            qputenv("QT_QPA_PLATFORM", "offscreen");
            return true;
        }
    }
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::fputs("glinta: no X display is available (DISPLAY is not set). Glinta lives in the system "
                   "tray of a graphical desktop, so it needs one to run.\n",
                   stderr);
        return false;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    if (!choosePlatform(argc, argv))
        return 1;

    QApplication app(argc, argv);
    QApplication::setApplicationName(u"glinta"_s);
    QApplication::setOrganizationDomain(u"nordvik.com"_s);
    QApplication::setApplicationDisplayName(u"Glinta"_s);
    QApplication::setApplicationVersion(BuildInfo::current().shortVersion);
    QApplication::setDesktopFileName(u"com.nordvik.glinta"_s);
    QApplication::setWindowIcon(applicationIcon());
    // Closing the sign-in window must not end a program that lives in the tray.
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Your LibreLinkUp glucose reading in the system tray."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);

    QuitSignals quitSignals;
    QObject::connect(&quitSignals, &QuitSignals::received, &app, &QApplication::quit);

    GlintaApp::Environment environment = GlintaApp::Environment::user();
    SingleInstance instance(QFileInfo(environment.settings->fileName()).absolutePath(),
                            QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation));
    if (!instance.claim()) {
        std::fputs("Glinta is already running; bringing its panel forward.\n", stdout);
        QObject::connect(&instance, &SingleInstance::delivered, &app, [](bool ok) {
            if (!ok)
                std::fputs("glinta: the running Glinta did not answer.\n", stderr);
            QApplication::exit(ok ? 0 : 1);
        });
        instance.notifyRunning();
        return app.exec();
    }

    GlintaApp glinta(std::move(environment));
    QObject::connect(&glinta, &GlintaApp::quitRequested, &app, &QApplication::quit);
    QObject::connect(&instance, &SingleInstance::activationRequested, glinta.statusItem(),
                     &StatusItem::showPanel);
    glinta.start();
    return app.exec();
}
