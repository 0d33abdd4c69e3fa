#pragma once

#include "domain/GlucoseChartSeries.h"
#include "uikit/GlucoseChartPainter.h"

#include <QWidget>

namespace glinta {

struct GlucoseSnapshot;

// The widget's history chart: the target band, the line red below the snapshot's low target, and in the
// large size the times of day underneath. Transparent, so that the host's background shows through.
class WidgetChart : public QWidget
{
    Q_OBJECT

public:
    explicit WidgetChart(bool showsTimeAxis, QWidget *parent = nullptr);

    void setSnapshot(const GlucoseSnapshot &snapshot);

    bool showsTimeAxis() const { return m_painter.input().showsTimeAxis; }
    // Bottom and top of the plot, in the snapshot's unit.
    GlucoseChartDomain yDomain() const;
    // The chart as last painted.
    const GlucoseChartPainter &painter() const { return m_painter; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int timeAxisHeight() const;

    GlucoseChartPainter m_painter;
};

} // namespace glinta
