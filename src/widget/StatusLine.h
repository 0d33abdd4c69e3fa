#pragma once

#include "widget/GlucoseEntry.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <optional>

class QIODevice;

namespace glinta {

enum class StatusLineFormat
{
    // The status item's title, as in 124 ↗, or "–" without data.
    plain,
    // One compact JSON object for waybar's custom modules: "text" (the title), "tooltip" (what a screen
    // reader says for the status item, after the alert's line while one holds) and "class", a list:
    // "low", "high" or "in-range", plus "stale" when the reading is more than 15 minutes older than the
    // entry; "none" without data; and "alert" while Glinta shows an alert.
    waybar,
};

// What a status bar shows for one entry, without the line break.
QString statusLine(const GlucoseEntry &entry, StatusLineFormat format);

// Writes the line for each entry it is shown when the line changed, and at least once a minute of entry
// time even when it did not, so a bar that restarts its module or missed a line catches up.
class StatusLinePrinter : public QObject
{
    Q_OBJECT

public:
    StatusLinePrinter(QIODevice *output, StatusLineFormat format, QObject *parent = nullptr);

    void show(const GlucoseEntry &entry);

private:
    QPointer<QIODevice> m_output;
    StatusLineFormat m_format;
    QString m_lastLine;
    std::optional<QDateTime> m_lastPrinted;
};

} // namespace glinta
