#include "widget/StatusLine.h"

#include "domain/MenuBarTitle.h"
#include "widget/TimelineProvider.h"

#include <QFileDevice>
#include <QIODevice>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

// The widget's own placeholder for a missing statistic; a bar hides an empty module, and a module that
// vanishes reads as a crashed script.
const QString noDataText = u"\u2013"_s;

// The widget's colour rule, against the snapshot's own target range.
QString rangeClass(const GlucoseSnapshot &snapshot, const GlucoseReading &latest)
{
    switch (glucoseRange(latest, snapshot.targets)) {
    case GlucoseRange::low:
        return u"low"_s;
    case GlucoseRange::high:
        return u"high"_s;
    case GlucoseRange::inRange:
        break;
    }
    return u"in-range"_s;
}

} // namespace

QString statusLine(const GlucoseEntry &entry, StatusLineFormat format)
{
    const std::optional<GlucoseReading> latest =
        entry.snapshot ? entry.snapshot->latest : std::optional<GlucoseReading>();
    const GlucoseUnit unit = entry.snapshot ? entry.snapshot->unit : GlucoseUnit::mgPerDl;
    // The status item's title without the update dot: the bar is not where updates are announced.
    const MenuBarTitle title = menuBarTitle(latest, unit, entry.date, std::nullopt,
                                            entry.snapshot ? entry.snapshot->alert : std::nullopt);
    const QString text = latest ? title.text : noDataText;
    if (format == StatusLineFormat::plain)
        return text;

    QJsonArray classes;
    if (latest) {
        classes.append(rangeClass(*entry.snapshot, *latest));
        if (title.isStale)
            classes.append(u"stale"_s);
    } else {
        classes.append(u"none"_s);
    }
    QString tooltip = title.accessibilityLabel;
    if (!title.alert.isEmpty()) {
        classes.append(u"alert"_s);
        tooltip = title.alert + u'\n' + tooltip;
    }
    const QJsonObject object{
        {u"text"_s, text},
        {u"tooltip"_s, tooltip},
        {u"class"_s, classes},
    };
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

StatusLinePrinter::StatusLinePrinter(QIODevice *output, StatusLineFormat format, QObject *parent)
    : QObject(parent), m_output(output), m_format(format)
{}

void StatusLinePrinter::show(const GlucoseEntry &entry)
{
    const QString line = statusLine(entry, m_format);
    // Half the tick interval, so a minute tick is never mistaken for a reload just before it, whatever
    // the clock's drift.
    const bool due = !m_lastPrinted || std::chrono::milliseconds(qAbs(m_lastPrinted->msecsTo(entry.date))) >=
                                           TimelineProvider::entryInterval / 2;
    if (!m_output || (line == m_lastLine && !due))
        return;
    m_lastLine = line;
    m_lastPrinted = entry.date;
    m_output->write(line.toUtf8() + '\n');
    // A bar reads the pipe line by line and must not wait for a buffer to fill.
    if (auto *file = qobject_cast<QFileDevice *>(m_output.data()))
        file->flush();
}

} // namespace glinta
