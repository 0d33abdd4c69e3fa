#include "ReleaseNotes.h"
#include "SystemStyle.h"
#include "WhatsNewView.h"

#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// The versions whose block carries the "Installed" badge, in list order.
QStringList markedVersions(const WhatsNewView &view)
{
    QStringList marked;
    const QList<QWidget *> entries = view.findChildren<QWidget *>(u"entry"_s);
    for (int i = 0; i < entries.size(); ++i) {
        const auto *badge = entries[i]->findChild<QLabel *>(u"installedBadge"_s);
        if (badge && badge->text() == u"Installed"_s)
            marked.append(releaseNotes().at(i).version);
    }
    return marked;
}

} // namespace

class TestWhatsNewView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tableIsNewestFirstAndVerbatim()
    {
        QStringList versions;
        qsizetype changes = 0;
        for (const ReleaseNote &note : releaseNotes()) {
            versions.append(note.version);
            changes += note.changes.size();
        }
        QCOMPARE(versions, (QStringList{u"1.3.5"_s, u"1.3.4"_s, u"1.3.3"_s, u"1.3.2"_s, u"1.3.1"_s, u"1.3"_s,
                                        u"1.2.1"_s, u"1.2"_s, u"1.1"_s, u"1.0"_s}));
        QCOMPARE(changes, 15);
        QCOMPARE(releaseNotes().at(8).date, u"June 2026"_s);

        // The warning sign must keep its text-style selector, and the dashes must be real em dashes.
        const QString stale = releaseNotes().at(0).changes.at(0);
        const qsizetype sign = stale.indexOf(u"showing with no "_s) + 16;
        const char16_t warning[] = {0x26A0, 0xFE0E, u' ', 0x2014, u' '};
        QCOMPARE(QStringView(stale).mid(sign, 5), QStringView(warning, 5));
        const QString blank = releaseNotes().at(2).changes.at(0);
        QCOMPARE(blank.at(blank.indexOf(u"staying blank "_s) + 14), QChar(0x2014));
        QCOMPARE(blank.count(QChar(0x2014)), 1);
        QVERIFY(releaseNotes().at(3).changes.at(1).startsWith(u"What\x27s New: "_s));
    }

    void marksOnlyTheRunningVersion_data()
    {
        QTest::addColumn<std::optional<QString>>("current");
        QTest::addColumn<QStringList>("marked");
        QTest::newRow("absent") << std::optional<QString>() << QStringList();
        QTest::newRow("1.3 is not 1.3.x") << std::optional(u"1.3"_s) << QStringList{u"1.3"_s};
        QTest::newRow("newest") << std::optional(u"1.3.5"_s) << QStringList{u"1.3.5"_s};
        QTest::newRow("oldest") << std::optional(u"1.0"_s) << QStringList{u"1.0"_s};
        QTest::newRow("unknown newer build") << std::optional(u"9.9"_s) << QStringList();
        QTest::newRow("no padding of versions") << std::optional(u"1.3.0"_s) << QStringList();
        QTest::newRow("empty") << std::optional(QString()) << QStringList();
    }

    void marksOnlyTheRunningVersion()
    {
        QFETCH(std::optional<QString>, current);
        QFETCH(QStringList, marked);
        const WhatsNewView view(current);
        QCOMPARE(markedVersions(view), marked);

        const QStringList labels = view.entryAccessibilityLabels();
        QCOMPARE(labels.size(), releaseNotes().size());
        for (int i = 0; i < labels.size(); ++i) {
            const ReleaseNote &note = releaseNotes().at(i);
            QVERIFY(labels[i].startsWith(u"Version "_s + note.version + u", "_s + note.date));
            QCOMPARE(labels[i].contains(u", installed"_s), marked.contains(note.version));
        }
    }

    void accessibilityLabelOfTheInstalledEntry()
    {
        const WhatsNewView view(u"1.2"_s);
        QCOMPARE(view.entryAccessibilityLabels().at(7),
                 u"Version 1.2, July 2026, installed. Desktop widgets: current reading, chart, and 12-hour "
                 u"stats.. Sign-in moved to its own window so password AutoFill works."_s);
    }

    void scrollsVerticallyWithinItsFixedSize()
    {
        WhatsNewView view(u"1.3.5"_s);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QCOMPARE(view.size(), QSize(460, 420));
        const auto *scroll = view.findChild<QScrollArea *>();
        QVERIFY(scroll->verticalScrollBar()->maximum() > 0);
        QCOMPARE(scroll->widget()->width(), scroll->viewport()->width());
        const QList<QWidget *> entries = view.findChildren<QWidget *>(u"entry"_s);
        for (int i = 1; i < entries.size(); ++i)
            QVERIFY(entries[i]->y() > entries[i - 1]->y());
    }

    void followsThePalette()
    {
        WhatsNewView view(std::nullopt);
        view.setPalette(style::darkPalette());
        const QPalette dark = view.palette();
        const auto *date = view.findChild<QWidget *>(u"entry"_s)->findChildren<QLabel *>().at(1);
        QCOMPARE(date->text(), u"July 2026"_s);
        QCOMPARE(date->palette().color(QPalette::WindowText), style::secondaryText(dark));
    }
};

QTEST_MAIN(TestWhatsNewView)
#include "tst_whatsnewview.moc"
