#include "DesktopWidgetWindow.h"

#include <QAction>
#include <QMenu>
#include <QScreen>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

class DesktopWidgetWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void restoresPlaceAndSize_data();
    void restoresPlaceAndSize();
    void menuAndDragAreRemembered();

private:
    QTemporaryDir m_dir;
};

void DesktopWidgetWindowTest::restoresPlaceAndSize_data()
{
    QTest::addColumn<QVariant>("savedPosition");
    QTest::addColumn<QString>("savedFamily");
    QTest::addColumn<std::optional<WidgetFamily>>("asked");
    QTest::addColumn<QPoint>("position");
    QTest::addColumn<QSize>("size");

    // The offscreen platform's one screen is 800×800.
    const std::optional<WidgetFamily> none;
    QTest::newRow("first start") << QVariant() << QString() << none << QPoint(606, 24) << QSize(170, 170);
    QTest::newRow("remembered") << QVariant(QPoint(100, 120)) << u"medium"_s << none << QPoint(100, 120)
                                << QSize(364, 170);
    QTest::newRow("size asked for") << QVariant(QPoint(100, 120)) << u"medium"_s
                                    << std::optional(WidgetFamily::systemLarge) << QPoint(100, 120)
                                    << QSize(364, 364);
    QTest::newRow("screen gone") << QVariant(QPoint(2500, 900)) << u"small"_s << none << QPoint(630, 630)
                                 << QSize(170, 170);
    QTest::newRow("half off the left")
        << QVariant(QPoint(-200, 500)) << u"large"_s << none << QPoint(0, 436) << QSize(364, 364);
    QTest::newRow("unknown size") << QVariant(QPoint(10, 10)) << u"huge"_s << none << QPoint(10, 10)
                                  << QSize(170, 170);
}

void DesktopWidgetWindowTest::restoresPlaceAndSize()
{
    QFETCH(QVariant, savedPosition);
    QFETCH(QString, savedFamily);
    QFETCH(std::optional<WidgetFamily>, asked);
    QFETCH(QPoint, position);
    QFETCH(QSize, size);
    QCOMPARE(QGuiApplication::primaryScreen()->availableGeometry(), QRect(0, 0, 800, 800));

    QSettings settings(m_dir.filePath(QString::fromLatin1(QTest::currentDataTag()) + u".ini"_s),
                       QSettings::IniFormat);
    if (savedPosition.isValid())
        settings.setValue(u"widget/position"_s, savedPosition);
    if (!savedFamily.isEmpty())
        settings.setValue(u"widget/family"_s, savedFamily);

    const DesktopWidgetWindow window(&settings, asked);
    QCOMPARE(window.pos(), position);
    QCOMPARE(window.size(), size);
    QCOMPARE(window.view()->family(), window.family());
}

void DesktopWidgetWindowTest::menuAndDragAreRemembered()
{
    QSettings settings(m_dir.filePath(u"menu.ini"_s), QSettings::IniFormat);
    settings.setValue(u"widget/position"_s, QPoint(600, 50));
    DesktopWidgetWindow window(&settings);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));

    QStringList titles;
    for (const QAction *action : window.contextMenu()->actions())
        titles += action->text();
    QCOMPARE(titles, QStringList({u"Small"_s, u"Medium"_s, u"Large"_s, QString(), u"Close"_s}));

    // Large does not fit where small was: it moves left to stay on the screen.
    window.contextMenu()->actions()[2]->trigger();
    QCOMPARE(window.size(), QSize(364, 364));
    QCOMPARE(window.pos(), QPoint(436, 50));
    QVERIFY(window.contextMenu()->actions()[2]->isChecked());
    QVERIFY(!window.contextMenu()->actions()[0]->isChecked());
    QCOMPARE(settings.value(u"widget/family"_s).toString(), u"large"_s);

    QTest::mousePress(&window, Qt::LeftButton, {}, QPoint(40, 40));
    QTest::mouseMove(&window, QPoint(10, 60));
    QTest::mouseRelease(&window, Qt::LeftButton, {}, QPoint(10, 60));
    QCOMPARE(window.pos(), QPoint(406, 70));
    QCOMPARE(settings.value(u"widget/position"_s).toPoint(), QPoint(406, 70));

    bool closed = false;
    connect(&window, &DesktopWidgetWindow::closed, this, [&closed] { closed = true; });
    window.contextMenu()->actions()[4]->trigger();
    QVERIFY(closed);
    QVERIFY(!window.isVisible());
}

QTEST_MAIN(DesktopWidgetWindowTest)
#include "tst_desktopwidgetwindow.moc"
