#include "DesktopWidgetWindow.h"

#include <QAction>
#include <QMenu>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

// The offscreen platform's one screen is 800×800.
class DesktopWidgetWindowTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private Q_SLOTS:
    void restoresPlaceAndSize_data()
    {
        QTest::addColumn<QVariant>("savedPosition");
        QTest::addColumn<QString>("savedFamily");
        QTest::addColumn<std::optional<WidgetFamily>>("asked");
        QTest::addColumn<QRect>("geometry");
        const std::optional<WidgetFamily> none;
        QTest::newRow("first start") << QVariant() << QString() << none << QRect(606, 24, 170, 170);
        QTest::newRow("size asked for")
            << QVariant(QPoint(100, 120)) << u"medium"_s << std::optional(WidgetFamily::systemLarge)
            << QRect(100, 120, 364, 364);
        QTest::newRow("screen gone") << QVariant(QPoint(2500, 900)) << u"medium"_s << none
                                     << QRect(436, 630, 364, 170);
        QTest::newRow("unknown size")
            << QVariant(QPoint(10, 10)) << u"huge"_s << none << QRect(10, 10, 170, 170);
    }

    void restoresPlaceAndSize()
    {
        QFETCH(QVariant, savedPosition);
        QFETCH(QString, savedFamily);
        QFETCH(std::optional<WidgetFamily>, asked);
        QSettings settings(m_dir.filePath(QString::fromLatin1(QTest::currentDataTag()) + u".ini"_s),
                           QSettings::IniFormat);
        if (savedPosition.isValid())
            settings.setValue(u"widget/position"_s, savedPosition);
        if (!savedFamily.isEmpty())
            settings.setValue(u"widget/family"_s, savedFamily);
        const DesktopWidgetWindow window(&settings, asked);
        QTEST(window.geometry(), "geometry");
        QCOMPARE(window.view()->family(), window.family());
    }

    // Large does not fit where small was: it moves left to stay on the screen. Both choices are kept.
    void sizeMenuAndDragAreRemembered()
    {
        QSettings settings(m_dir.filePath(u"menu.ini"_s), QSettings::IniFormat);
        settings.setValue(u"widget/position"_s, QPoint(600, 50));
        DesktopWidgetWindow window(&settings);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QAction *large = window.contextMenu()->actions().value(2);
        QCOMPARE(large->text(), u"Large"_s);
        large->trigger();
        QCOMPARE(window.geometry(), QRect(436, 50, 364, 364));
        QVERIFY(large->isChecked() && !window.contextMenu()->actions()[0]->isChecked());

        QTest::mousePress(&window, Qt::LeftButton, {}, QPoint(40, 40));
        QTest::mouseMove(&window, QPoint(10, 60));
        QTest::mouseRelease(&window, Qt::LeftButton, {}, QPoint(10, 60));
        QCOMPARE(window.pos(), QPoint(406, 70));
        const DesktopWidgetWindow restarted(&settings);
        QCOMPARE(restarted.geometry(), QRect(406, 70, 364, 364));
    }
};

QTEST_MAIN(DesktopWidgetWindowTest)
#include "tst_desktopwidgetwindow.moc"