#include "menubar/GlucoseChartView.h"

#include "store/GlucoseStore.h"
#include "uikit/SystemStyle.h"

#include <QPainter>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr int chartHeight = 140;
constexpr qreal emptyCornerRadius = 8;

} // namespace

GlucoseChartView::GlucoseChartView(GlucoseStore *store, QWidget *parent) : QWidget(parent), m_store(store)
{
    setAccessibleName(u"Glucose history chart"_s);
    setFixedHeight(chartHeight);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);

    // A poll changes the latest reading and the history one after the other, and the open panel repaints
    // once for both. A closed panel does not paint at all, so nothing is worked out for nobody.
    const auto changed = [this] {
        m_behindStore = true;
        update();
    };
    for (auto signal : {&GlucoseStore::historyChanged, &GlucoseStore::latestChanged,
                        &GlucoseStore::unitChanged, &GlucoseStore::targetRangeChanged})
        connect(store, signal, this, changed);
}

bool GlucoseChartView::showsEmptyState() const
{
    return m_painter.input().history.isEmpty();
}

void GlucoseChartView::takeStoreIn()
{
    const TargetRange targets = m_store->targetRange();
    m_painter.setInput({
        .history = m_store->history(),
        .latest = m_store->latest(),
        .unit = m_store->unit(),
        .targets = targets,
        .redLineMgPerDl = targets.lowMgPerDl,
        .showsValueAxis = true,
        .showsTimeAxis = true,
        .bandOpacity = 0.1,
    });
    m_behindStore = false;
    // What a screen reader has in place of the painted text.
    setAccessibleDescription(showsEmptyState() ? tr("No readings yet") : QString());
}

void GlucoseChartView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_behindStore)
        takeStoreIn();
}

void GlucoseChartView::paintEvent(QPaintEvent *)
{
    // Also reached without ever being shown: picture export renders the panel off screen.
    if (m_behindStore)
        takeStoreIn();
    QPainter painter(this);
    const QPalette colours = palette();
    if (!showsEmptyState()) {
        m_painter.paint(painter, QRectF(rect()), colours);
        return;
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(style::withOpacity(style::quaternaryFill(colours), 0.5));
    painter.drawRoundedRect(QRectF(rect()), emptyCornerRadius, emptyCornerRadius);
    painter.setFont(style::font(style::TextStyle::caption));
    painter.setPen(style::secondaryText(colours));
    painter.drawText(rect(), Qt::AlignCenter, tr("No readings yet"));
}

} // namespace glinta
