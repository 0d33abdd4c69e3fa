#pragma once

#include <QList>
#include <QWidget>

class QAreaSeries;
class QChart;
class QChartView;
class QDateTimeAxis;
class QLabel;
class QLineSeries;
class QScatterSeries;
class QStackedLayout;
class QValueAxis;

namespace glinta {

class GlucoseStore;

// The twelve-hour history: target band, line segments red below 70 mg/dL, the newest reading.
class GlucoseChartView : public QWidget
{
    Q_OBJECT

public:
    GlucoseChartView(GlucoseStore *store, QWidget *parent = nullptr);

    // What is on screen: the chart while there is history, nullptr while the empty state shows.
    QChart *chart() const;
    bool showsEmptyState() const;

protected:
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    // What a store change asks to redraw; while the panel is closed it waits until it opens.
    enum class Pending
    {
        nothing,
        latest,
        everything,
    };
    void redrawWhenShown(Pending work);
    void redrawPending();

    void rebuild();
    void rebuildLatest();
    void fitTimeAxis();
    void styleAxes();

    GlucoseStore *m_store;
    QChart *m_chart;
    QDateTimeAxis *m_timeAxis;
    QValueAxis *m_valueAxis;
    QLabel *m_emptyLabel;
    QChartView *m_chartView;
    QStackedLayout *m_pages;
    QAreaSeries *m_band = nullptr;
    QList<QLineSeries *> m_lines;
    // Kept so that a new latest reading replaces only the dot, not the whole history.
    QScatterSeries *m_latestDot = nullptr;
    Pending m_pending = Pending::nothing;
    bool m_redrawPosted = false;
};

} // namespace glinta
