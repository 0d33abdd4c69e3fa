#include "ReleaseNotes.h"
#include "WhatsNewView.h"

#include <QLabel>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

class TestWhatsNewView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Newest first, in the wording they shipped with: the warning sign keeps its text-style selector and
    // the dashes are real em dashes.
    void tableIsNewestFirstAndVerbatim()
    {
        QStringList versions;
        for (const ReleaseNote &note : releaseNotes())
            versions.append(note.version);
        QCOMPARE(versions, (QStringList{u"1.3.5"_s, u"1.3.4"_s, u"1.3.3"_s, u"1.3.2"_s, u"1.3.1"_s, u"1.3"_s,
                                        u"1.2.1"_s, u"1.2"_s, u"1.1"_s, u"1.0"_s}));
        QVERIFY(
            releaseNotes().at(0).changes.at(0).contains(u"showing with no \u26A0\uFE0E \u2014 looking"_s));
        QVERIFY(releaseNotes().at(2).changes.at(0).contains(u"staying blank \u2014 it waited"_s));
        QVERIFY(releaseNotes().at(3).changes.at(1).startsWith(u"What\x27s New: "_s));
        // A screen reader hears each entry as one sentence per change.
        QCOMPARE(WhatsNewView(u"1.2"_s).entryAccessibilityLabels().at(7),
                 u"Version 1.2, July 2026, installed. Desktop widgets: current reading, chart, and 12-hour "
                 u"stats.. Sign-in moved to its own window so password AutoFill works."_s);
    }

    void marksOnlyTheRunningVersion_data()
    {
        QTest::addColumn<std::optional<QString>>("current");
        QTest::addColumn<QStringList>("marked");
        QTest::newRow("absent") << std::optional<QString>() << QStringList();
        QTest::newRow("1.3 is not 1.3.x") << std::optional(u"1.3"_s) << QStringList{u"1.3"_s};
        QTest::newRow("oldest") << std::optional(u"1.0"_s) << QStringList{u"1.0"_s};
        QTest::newRow("no padding of versions") << std::optional(u"1.3.0"_s) << QStringList();
        QTest::newRow("empty") << std::optional(QString()) << QStringList();
    }

    // The badge, and the same word for a screen reader.
    void marksOnlyTheRunningVersion()
    {
        QFETCH(std::optional<QString>, current);
        QFETCH(QStringList, marked);
        const WhatsNewView view(current);
        const QList<QWidget *> entries = view.findChildren<QWidget *>(u"entry"_s);
        const QStringList labels = view.entryAccessibilityLabels();
        QCOMPARE(entries.size(), releaseNotes().size());
        QCOMPARE(labels.size(), releaseNotes().size());
        QStringList badged, spoken;
        for (int i = 0; i < entries.size(); ++i) {
            const QString version = releaseNotes().at(i).version;
            if (const auto *badge = entries[i]->findChild<QLabel *>(u"installedBadge"_s))
                badged.append(badge->text() == u"Installed"_s ? version : badge->text());
            if (labels[i].startsWith(u"Version "_s + version + u", "_s + releaseNotes().at(i).date +
                                     u", installed"_s))
                spoken.append(version);
        }
        QCOMPARE(badged, marked);
        QCOMPARE(spoken, marked);
    }
};

QTEST_MAIN(TestWhatsNewView)
#include "tst_whatsnewview.moc"