#include "menubar/GlucoseChartView.h"

#include "domain/GlucoseChartSeries.h"
#include "domain/GlucoseConstants.h"
#include "store/GlucoseStore.h"
#include "uikit/SystemStyle.h"

#include <QEvent>
#include <QGraphicsLayout>
#include <QLabel>
#include <QPainter>
#include <QStackedLayout>
#include <QtCharts/QAreaSeries>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QDateTimeAxis>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr int chartHeight = 140;
constexpr qreal emptyCornerRadius = 8;
constexpr qreal lineWidth = 2;
constexpr qreal dotSize = 8;
// One instant has no span to fit; this much either side centres it.
constexpr qint64 singleInstantMarginMs = 30 * 60 * 1000;

double plotted(double mgPerDl, GlucoseUnit unit)
{
    return unit == GlucoseUnit::mmolPerL ? mgPerDl / mgPerDlPerMmolPerL : mgPerDl;
}

qreal plotted(const QDateTime &date)
{
    return qreal(date.toMSecsSinceEpoch());
}

QColor withOpacity(QColor color, qreal opacity)
{
    color.setAlphaF(color.alphaF() * opacity);
    return color;
}

// A step of 1, 2 or 5 times a power of ten giving about four lines, so the labels read as round values
// while the range itself stays exactly as computed.
double valueTickInterval(double span)
{
    const double raw = span / 4;
    if (!std::isfinite(raw) || raw <= 0)
        return 1;
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    const double normalized = raw / magnitude;
    const double step = normalized < 1.5 ? 1 : normalized < 3.5 ? 2 : normalized < 7.5 ? 5 : 10;
    return step * magnitude;
}

} // namespace

GlucoseChartView::GlucoseChartView(GlucoseStore *store, QWidget *parent)
    : QWidget(parent), m_store(store), m_chart(new QChart), m_timeAxis(new QDateTimeAxis),
      m_valueAxis(new QValueAxis), m_emptyLabel(new QLabel(u"No readings yet"_s, this)),
      m_chartView(new QChartView(m_chart, this)), m_pages(new QStackedLayout(this))
{
    setAccessibleName(u"Glucose history chart"_s);
    setFixedHeight(chartHeight);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);

    m_emptyLabel->setAlignment(Qt::AlignCenter);

    m_chart->legend()->hide();
    m_chart->setBackgroundVisible(false);
    m_chart->setPlotAreaBackgroundVisible(false);
    m_chart->layout()->setContentsMargins(0, 0, 0, 0);
    m_chart->setMargins(QMargins(2, 4, 2, 2));
    m_chart->addAxis(m_timeAxis, Qt::AlignBottom);
    m_chart->addAxis(m_valueAxis, Qt::AlignRight);
    // Named for what they measure; the plot says it well enough without printed titles.
    m_timeAxis->setTitleText(u"Time"_s);
    m_valueAxis->setTitleText(u"Glucose"_s);
    m_timeAxis->setTitleVisible(false);
    m_valueAxis->setTitleVisible(false);
    m_timeAxis->setFormat(u"HH:mm"_s);
    m_timeAxis->setTickCount(4);
    // Lines on round values rather than at fixed fractions of a range that starts at 40.
    m_valueAxis->setTickType(QValueAxis::TicksDynamic);
    m_valueAxis->setTickAnchor(0);

    // Transparent all the way down, so the panel (or an exported picture) shows through.
    m_chartView->setRenderHint(QPainter::Antialiasing);
    m_chartView->setFrameShape(QFrame::NoFrame);
    m_chartView->setBackgroundBrush(Qt::NoBrush);
    m_chartView->setAutoFillBackground(false);
    m_chartView->viewport()->setAutoFillBackground(false);

    m_pages->setContentsMargins(0, 0, 0, 0);
    m_pages->addWidget(m_emptyLabel);
    m_pages->addWidget(m_chartView);

    styleAxes();
    rebuild();

    connect(store, &GlucoseStore::historyChanged, this, [this] { redrawWhenShown(Pending::everything); });
    connect(store, &GlucoseStore::unitChanged, this, [this] { redrawWhenShown(Pending::everything); });
    connect(store, &GlucoseStore::targetRangeChanged, this, [this] { redrawWhenShown(Pending::everything); });
    // Arrives with nearly every poll: only the dot and the time range depend on it.
    connect(store, &GlucoseStore::latestChanged, this, [this] { redrawWhenShown(Pending::latest); });
}

QChart *GlucoseChartView::chart() const
{
    return showsEmptyState() ? nullptr : m_chart;
}

bool GlucoseChartView::showsEmptyState() const
{
    return m_pages->currentWidget() == m_emptyLabel;
}

// Rebuilding the chart is most of what a poll costs; with the panel closed nobody sees it. A poll
// changes the latest reading and the history one after the other: one rebuild, after both, serves.
void GlucoseChartView::redrawWhenShown(Pending work)
{
    m_pending = std::max(m_pending, work);
    if (!isVisible() || m_pending == Pending::nothing || std::exchange(m_redrawPosted, true))
        return;
    QMetaObject::invokeMethod(this, &GlucoseChartView::redrawPending, Qt::QueuedConnection);
}

void GlucoseChartView::redrawPending()
{
    m_redrawPosted = false;
    if (!isVisible())
        return;
    const Pending pending = std::exchange(m_pending, Pending::nothing);
    if (pending == Pending::everything)
        rebuild();
    else if (pending == Pending::latest)
        rebuildLatest();
}

void GlucoseChartView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    redrawPending();
}

void GlucoseChartView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    // Picture export draws the same view in a light and then a dark palette.
    if (event->type() == QEvent::PaletteChange) {
        styleAxes();
        rebuild();
    }
}

void GlucoseChartView::paintEvent(QPaintEvent *)
{
    if (!showsEmptyState())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(withOpacity(style::quaternaryFill(palette()), 0.5));
    painter.drawRoundedRect(QRectF(rect()), emptyCornerRadius, emptyCornerRadius);
}

void GlucoseChartView::rebuild()
{
    const QList<GlucoseReading> history = m_store->history();
    m_pages->setCurrentWidget(history.isEmpty() ? static_cast<QWidget *>(m_emptyLabel) : m_chartView);
    update();
    if (history.isEmpty()) {
        m_chart->removeAllSeries();
        m_band = nullptr;
        m_lines.clear();
        m_latestDot = nullptr;
        return;
    }

    const GlucoseUnit unit = m_store->unit();
    const QPalette colours = palette();
    const auto attach = [this](QAbstractSeries *series) {
        m_chart->addSeries(series);
        series->attachAxis(m_timeAxis);
        series->attachAxis(m_valueAxis);
    };

    // The series are kept from poll to poll and given new points: making the chart's items anew each
    // time cost more than drawing them. Colours are set after adding: the chart's theme paints over
    // series that still have default pens.
    if (!m_band) {
        m_band = new QAreaSeries;
        m_band->setUpperSeries(new QLineSeries(m_band));
        m_band->setLowerSeries(new QLineSeries(m_band));
        attach(m_band);
        m_band->setPen(Qt::NoPen);
    }
    const qreal start = plotted(history.first().date);
    const qreal end = plotted(history.last().date);
    const TargetRange range = m_store->targetRange();
    const double high = plotted(range.highMgPerDl, unit);
    const double low = plotted(range.lowMgPerDl, unit);
    m_band->upperSeries()->replace(QList<QPointF>{{start, high}, {end, high}});
    m_band->lowerSeries()->replace(QList<QPointF>{{start, low}, {end, low}});
    m_band->setBrush(withOpacity(style::green(colours), 0.1));

    // Straight lines through every vertex, so neighbouring segments meet on the red line.
    const QList<GlucoseChartSegment> segments = chartSegments(history, range.lowMgPerDl);
    while (m_lines.size() > segments.size()) {
        QLineSeries *line = m_lines.takeLast();
        m_chart->removeSeries(line);
        delete line;
    }
    for (qsizetype i = 0; i < segments.size(); ++i) {
        const GlucoseChartSegment &segment = segments[i];
        QList<QPointF> points;
        points.reserve(segment.points.size());
        for (const GlucoseChartPoint &point : segment.points)
            points.append({plotted(point.date), plotted(point.mgPerDl, unit)});
        if (i == m_lines.size()) {
            m_lines.append(new QLineSeries);
            attach(m_lines.last());
            // The dot is added again after it, so that it stays on top.
            if (m_latestDot) {
                m_chart->removeSeries(m_latestDot);
                delete std::exchange(m_latestDot, nullptr);
            }
        }
        m_lines[i]->replace(points);
        QPen pen(segment.isBelowRedLine ? style::red(colours) : style::accent(colours), lineWidth);
        pen.setCapStyle(Qt::RoundCap);
        pen.setJoinStyle(Qt::RoundJoin);
        m_lines[i]->setPen(pen);
    }

    const GlucoseChartDomain domain = chartYDomain(history, unit, range);
    const double interval = valueTickInterval(domain.upper - domain.lower);
    const int decimals = std::max(0, int(-std::floor(std::log10(interval))));
    m_valueAxis->setRange(domain.lower, domain.upper);
    m_valueAxis->setTickInterval(interval);
    m_valueAxis->setLabelFormat(u"%.%1f"_s.arg(decimals));

    rebuildLatest();
}

void GlucoseChartView::rebuildLatest()
{
    if (showsEmptyState())
        return;
    const std::optional<GlucoseReading> latest = m_store->latest();
    if (!latest) {
        if (m_latestDot) {
            m_chart->removeSeries(m_latestDot);
            delete std::exchange(m_latestDot, nullptr);
        }
    } else {
        if (!m_latestDot) {
            // Added last, so it lies on top of the line.
            m_latestDot = new QScatterSeries;
            m_latestDot->append(0, 0);
            m_chart->addSeries(m_latestDot);
            m_latestDot->attachAxis(m_timeAxis);
            m_latestDot->attachAxis(m_valueAxis);
            m_latestDot->setMarkerShape(QScatterSeries::MarkerShapeCircle);
            m_latestDot->setMarkerSize(dotSize);
        }
        m_latestDot->replace(0, plotted(latest->date), plotted(latest->mgPerDl, m_store->unit()));
        const QColor colour = latest->mgPerDl >= m_store->targetRange().lowMgPerDl ? style::accent(palette())
                                                                                   : style::red(palette());
        m_latestDot->setColor(colour);
        m_latestDot->setBorderColor(colour);
    }
    fitTimeAxis();
}

void GlucoseChartView::fitTimeAxis()
{
    const QList<GlucoseReading> history = m_store->history();
    QDateTime first = history.first().date;
    QDateTime last = history.last().date;
    if (const std::optional<GlucoseReading> latest = m_store->latest()) {
        first = std::min(first, latest->date);
        last = std::max(last, latest->date);
    }
    // The plot clips what crosses its edges, and the newest reading's dot sits right on one: a fiftieth
    // of the span either side keeps it whole at any width.
    const qint64 span = first.msecsTo(last);
    const qint64 margin = span > 0 ? span / 50 : singleInstantMarginMs;
    first = first.addMSecs(-margin);
    last = last.addMSecs(margin);
    m_timeAxis->setRange(first, last);
}

void GlucoseChartView::styleAxes()
{
    const QPalette colours = palette();
    style::apply(m_emptyLabel, style::TextStyle::caption, style::secondaryText(colours));
    const QFont labelFont = style::font(style::TextStyle::caption2);
    const QPen gridPen(style::quaternaryFill(colours), 1);
    for (QAbstractAxis *axis : std::initializer_list<QAbstractAxis *>{m_timeAxis, m_valueAxis}) {
        axis->setLabelsFont(labelFont);
        axis->setLabelsBrush(style::secondaryText(colours));
        axis->setGridLinePen(gridPen);
        axis->setLineVisible(false);
        axis->setShadesVisible(false);
        axis->setMinorGridLineVisible(false);
    }
}

} // namespace glinta
