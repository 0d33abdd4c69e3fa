#pragma once

#include "uikit/GlucoseChartPainter.h"

#include <QWidget>

namespace glinta {

class GlucoseStore;

// The twelve-hour history: target band, the line red below the low target, the newest reading.
class GlucoseChartView : public QWidget
{
    Q_OBJECT

public:
    explicit GlucoseChartView(GlucoseStore *store, QWidget *parent = nullptr);

    // As of the last showing or paint: "No readings yet" in place of the chart.
    bool showsEmptyState() const;
    // The chart as last painted.
    const GlucoseChartPainter &painter() const { return m_painter; }

protected:
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void takeStoreIn();

    GlucoseStore *m_store;
    GlucoseChartPainter m_painter;
    bool m_behindStore = true;
};

} // namespace glinta
