#pragma once

#include "domain/GlucoseChartSeries.h"
#include "domain/GlucoseConstants.h"
#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"
#include "domain/TargetRange.h"

#include <QDateTime>
#include <QFont>
#include <QList>
#include <QPolygonF>
#include <QRectF>
#include <QStaticText>

#include <optional>

class QPainter;
class QPalette;

namespace glinta {

// The history chart of the panel, the widget and the exported pictures: the target band, the line red
// below the red line, the newest reading's dot, and the value and time axes. The layout is worked out
// once per input and size and kept, so a repaint only draws: a poll repaints the open panel each time.
class GlucoseChartPainter
{
public:
    struct Input
    {
        QList<GlucoseReading> history;
        // Drawn as a dot over the line; none, no dot.
        std::optional<GlucoseReading> latest;
        GlucoseUnit unit = GlucoseUnit::mgPerDl;
        TargetRange targets;
        double redLineMgPerDl = targetLowMgPerDl;
        bool showsValueAxis = false;
        bool showsTimeAxis = false;
        qreal bandOpacity = 0.1;

        friend bool operator==(const Input &, const Input &) = default;
    };

    // Where everything goes, in the coordinates the painter was given.
    struct Geometry
    {
        struct Line
        {
            QPolygonF points;
            bool isBelowRedLine = false;
        };
        struct Tick
        {
            // x for a time tick, y for a value tick.
            qreal at = 0;
            QStaticText label;
            QPointF labelTopLeft;
        };

        QRectF plot;
        GlucoseChartDomain yDomain;
        std::optional<QRectF> band;
        QList<Line> lines;
        std::optional<QPointF> dot;
        bool dotIsBelowRedLine = false;
        QList<Tick> valueTicks;
        QList<Tick> timeTicks;
    };

    // An equal input keeps the layout.
    void setInput(Input input);
    const Input &input() const { return m_input; }

    // Nothing at all for an empty history.
    void paint(QPainter &painter, const QRectF &bounds, const QPalette &palette);

    // As last laid out by paint(): empty before the first one, and a new input shows here only once
    // it has been painted.
    const Geometry &geometry() const { return m_geometry; }

    // What the time labels take below the plot.
    static qreal timeAxisHeight();

    // Whole local hours from `from` to `to`, both included, every 2, 3 or 4 hours: the smallest step
    // that leaves `labelWidth` between ticks when the span is `width` wide, else 4. Hourly when the span
    // is too short to hold one of those.
    static QList<QDateTime> hourTicks(const QDateTime &from, const QDateTime &to, qreal width,
                                      qreal labelWidth);

private:
    void layOut(const QRectF &bounds);
    QStaticText label(const QString &text, const QList<Geometry::Tick> &before) const;

    Input m_input;
    Geometry m_geometry;
    QFont m_font;
    std::optional<QRectF> m_laidOutIn;
};

} // namespace glinta
