#pragma once

#include "domain/GlucoseChartSeries.h"
#include "domain/GlucoseConstants.h"
#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"

#include <QList>
#include <QWidget>

namespace glinta {

struct GlucoseSnapshot;

// The widget's history chart: the target band, the line red below the snapshot's low target, and in the
// large size a few times of day underneath. Painted directly rather than through Qt Charts, which is a
// lot of machinery for a process that stays up all day to draw a few lines. Transparent, so that the
// host's background shows through.
class WidgetChart : public QWidget
{
    Q_OBJECT

public:
    explicit WidgetChart(bool showsTimeAxis, QWidget *parent = nullptr);

    void setSnapshot(const GlucoseSnapshot &snapshot);

    bool showsTimeAxis() const { return m_showsTimeAxis; }
    // Bottom and top of the plot, in the snapshot's unit.
    GlucoseChartDomain yDomain() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int timeAxisHeight() const;

    bool m_showsTimeAxis;
    QList<GlucoseReading> m_history;
    GlucoseUnit m_unit = GlucoseUnit::mgPerDl;
    TargetRange m_targets;
};

} // namespace glinta
