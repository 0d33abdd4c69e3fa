#pragma once

#include <QWidget>

namespace glinta {

class GlucoseStore;

// The twelve-hour history: target band, line segments red below 70 mg/dL, the newest reading.
class GlucoseChartView : public QWidget
{
    Q_OBJECT

public:
    GlucoseChartView(GlucoseStore *store, QWidget *parent = nullptr);
};

} // namespace glinta
