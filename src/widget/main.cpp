#include "snapshot/SharedSnapshotStore.h"
#include "snapshot/WidgetReloadListener.h"
#include "support/BuildInfo.h"
#include "support/Clock.h"
#include "support/QuitSignals.h"
#include "uikit/Symbols.h"
#include "widget/DesktopWidgetWindow.h"
#include "widget/StatusLine.h"
#include "widget/TimelineProvider.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QSettings>

#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString statusLineName = u"status-line"_s;

bool hasArgument(int argc, char *argv[], std::initializer_list<QByteArrayView> names, bool asPrefix = false)
{
    for (int i = 1; i < argc; ++i) {
        const QByteArrayView argument(argv[i]);
        for (const QByteArrayView name : names) {
            if (argument == name ||
                (asPrefix && argument.startsWith(name) && argument.sliced(name.size()).startsWith('=')))
                return true;
        }
    }
    return false;
}

// Wayland lets no client keep its window below the others or put it where the user left it, so the window
// runs on X (XWayland there), like Glinta itself. Returns false when there is no display at all.
bool chooseWindowPlatform()
{
    if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        return true;
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::fputs("glinta-widget: no X display is available (DISPLAY is not set). For a status bar, run "
                   "glinta-widget --status-line instead.\n",
                   stderr);
        return false;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    return true;
}

// "--status-line" alone means the plain format; QCommandLineParser knows no optional values.
QStringList withStatusLineDefault(QStringList arguments)
{
    const QString bare = u"--"_s + statusLineName;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        if (arguments[i] != bare)
            continue;
        const bool valueFollows =
            i + 1 < arguments.size() && (arguments[i + 1] == u"plain"_s || arguments[i + 1] == u"waybar"_s);
        if (!valueFollows)
            arguments[i] = bare + u"=plain"_s;
    }
    return arguments;
}

int fail(const QString &message)
{
    std::fputs(qPrintable(u"glinta-widget: "_s + message + u'\n'), stderr);
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    // A status bar may start its modules before any display exists, and the line needs none.
    const bool windowless = hasArgument(argc, argv, {"--status-line"}, true) ||
                            hasArgument(argc, argv, {"-h", "--help", "--help-all", "-v", "--version"});
    std::unique_ptr<QCoreApplication> app;
    if (windowless) {
        app = std::make_unique<QCoreApplication>(argc, argv);
    } else {
        if (!chooseWindowPlatform())
            return 1;
        app = std::make_unique<QApplication>(argc, argv);
        QApplication::setApplicationDisplayName(u"Glinta"_s);
        QApplication::setWindowIcon(applicationIcon());
        QApplication::setDesktopFileName(u"com.nordvik.glinta.widget"_s);
    }
    QCoreApplication::setApplicationName(u"glinta-widget"_s);
    QCoreApplication::setOrganizationDomain(u"nordvik.com"_s);
    QCoreApplication::setApplicationVersion(BuildInfo::current().shortVersion);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Glinta's desktop widget: the reading Glinta last published, in a "
                                     u"window on the desktop or as a line for a status bar."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption statusLineOption(
        statusLineName,
        u"Instead of a window, print one line per change (and one a minute) for a status bar. <format> is "
        u"plain (the default: the status item's title) or waybar (JSON for a custom module)."_s,
        u"format"_s);
    const QCommandLineOption sizeOption(
        u"size"_s, u"The window's size: small, medium or large. Without it, the size it had last."_s,
        u"size"_s);
    parser.addOption(statusLineOption);
    parser.addOption(sizeOption);
    parser.process(withStatusLineDefault(QCoreApplication::arguments()));
    if (!parser.positionalArguments().isEmpty())
        return fail(u"unexpected argument \""_s + parser.positionalArguments().constFirst() + u"\"."_s);

    std::optional<StatusLineFormat> format;
    if (parser.isSet(statusLineOption)) {
        const QString name = parser.value(statusLineOption);
        if (name == u"plain"_s)
            format = StatusLineFormat::plain;
        else if (name == u"waybar"_s)
            format = StatusLineFormat::waybar;
        else
            return fail(u"unknown status line format \""_s + name + u"\"; use plain or waybar."_s);
    }
    std::optional<WidgetFamily> family;
    if (parser.isSet(sizeOption)) {
        family = DesktopWidgetWindow::familyFromName(parser.value(sizeOption));
        if (!family)
            return fail(u"unknown size \""_s + parser.value(sizeOption) +
                        u"\"; use small, medium or large."_s);
    }

    QuitSignals quitSignals;
    QObject::connect(&quitSignals, &QuitSignals::received, app.get(), &QCoreApplication::quit);

    SharedSnapshotStore store;
    const std::unique_ptr<Clock> clock = makeSystemClock();
    TimelineProvider timeline(&store, clock.get());
    WidgetReloadListener listener;
    QObject::connect(&listener, &WidgetReloadListener::reloadRequested, &timeline, &TimelineProvider::reload);

    std::unique_ptr<QFile> output;
    std::unique_ptr<StatusLinePrinter> printer;
    std::unique_ptr<QSettings> settings;
    std::unique_ptr<DesktopWidgetWindow> window;
    if (format) {
        output = std::make_unique<QFile>();
        if (!output->open(stdout, QIODevice::WriteOnly | QIODevice::Unbuffered))
            return fail(u"cannot write to standard output."_s);
        printer = std::make_unique<StatusLinePrinter>(output.get(), *format);
        QObject::connect(&timeline, &TimelineProvider::entryChanged, printer.get(), &StatusLinePrinter::show);
    } else {
        settings = std::make_unique<QSettings>(u"nordvik.com"_s, u"glinta-widget"_s);
        window = std::make_unique<DesktopWidgetWindow>(settings.get(), family);
        QObject::connect(&timeline, &TimelineProvider::entryChanged, window.get(),
                         &DesktopWidgetWindow::setEntry);
        QObject::connect(window.get(), &DesktopWidgetWindow::closed, app.get(), &QCoreApplication::quit);
        window->show();
    }

    timeline.start();
    return app->exec();
}
