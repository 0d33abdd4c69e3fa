#include "widget/GlucoseWidgetView.h"

#include "domain/GlucoseConstants.h"
#include "domain/GlucoseStatistics.h"
#include "domain/RelativeTime.h"
#include "uikit/ElidedLabel.h"
#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"
#include "widget/WidgetChart.h"

#include <QEvent>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr int smallValuePixelSize = 32;
constexpr int mediumValuePixelSize = 30;
constexpr int largeValuePixelSize = 34;
constexpr int trendPixelSize = 15;
constexpr int mediumColumnWidth = 100;

QFont valueFont(int pixelSize)
{
    QFont font = style::font(style::TextStyle::body);
    font.setPixelSize(pixelSize);
    font.setWeight(QFont::Bold);
    return font;
}

QFont trendFont()
{
    QFont font = style::font(style::TextStyle::body);
    font.setPixelSize(trendPixelSize);
    return font;
}

template <typename Label> Label *makeLabel(const QString &objectName, const QFont &font, QWidget *parent)
{
    auto *label = new Label(parent);
    label->setObjectName(objectName);
    label->setTextFormat(Qt::PlainText);
    label->setFont(font);
    return label;
}

// Only the text colour is set, so that every other role still follows the host's palette.
void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette palette;
    palette.setColor(QPalette::WindowText, color);
    widget->setPalette(palette);
}

// A symbol as tall as a line of text in `textStyle`, drawn for a device-pixel ratio of 2 so that an
// exported picture stays sharp.
void setSymbol(QLabel *label, const QString &name, const QColor &color, style::TextStyle textStyle)
{
    const QFontMetrics metrics(style::font(textStyle));
    const int size = metrics.height() - 2;
    label->setPixmap(symbolPixmap(name, color, size, 2.0));
    label->setFixedSize(size, metrics.height());
}

} // namespace

// The medium column is narrow, and this desktop's faces are wider than the rounded face the sizes were
// chosen for: the value gives up a few pixels before the unit is cut short.
void GlucoseWidgetView::fitValueIntoColumn()
{
    constexpr int smallestValuePixelSize = 22;
    const int spacing = m_parts.value->parentWidget()->layout()->spacing();
    const auto width = [spacing](const QLabel *label) {
        return label->isHidden() ? 0 : label->sizeHint().width() + spacing;
    };
    const int others = width(m_parts.trend) + width(m_parts.unit);
    for (int size = mediumValuePixelSize;; --size) {
        m_parts.value->setFont(valueFont(size));
        if (size == smallestValuePixelSize || m_parts.value->sizeHint().width() + others <= mediumColumnWidth)
            break;
    }
    style::alignBaseline(m_parts.trend, m_parts.value->font());
    style::alignBaseline(m_parts.unit, m_parts.value->font());
}

GlucoseWidgetView::GlucoseWidgetView(GlucoseEntry entry, std::optional<WidgetFamily> familyOverride,
                                     QWidget *parent)
    : QWidget(parent), m_entry(std::move(entry)), m_familyOverride(familyOverride),
      m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(0);
    refresh();
}

void GlucoseWidgetView::setEntry(GlucoseEntry entry)
{
    m_entry = std::move(entry);
    refresh();
}

void GlucoseWidgetView::setFamily(WidgetFamily family)
{
    m_family = family;
    refresh();
}

WidgetFamily GlucoseWidgetView::family() const
{
    return m_familyOverride.value_or(m_family);
}

void GlucoseWidgetView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    // Picture export draws the same view in a light and then a dark palette.
    if (event->type() == QEvent::PaletteChange && m_page)
        fill();
}

GlucoseWidgetView::Face GlucoseWidgetView::wantedFace() const
{
    if (!m_entry.snapshot || !m_entry.snapshot->latest)
        return Face::empty;
    switch (family()) {
    case WidgetFamily::systemMedium:
        return Face::medium;
    case WidgetFamily::systemLarge:
        return Face::large;
    case WidgetFamily::systemSmall:
        break;
    }
    return Face::small;
}

void GlucoseWidgetView::refresh()
{
    const Face face = wantedFace();
    // A new entry every minute mostly changes texts: the widgets are rebuilt only when the face changes.
    if (!m_page || face != m_face)
        build(face);
    fill();
}

void GlucoseWidgetView::build(Face face)
{
    delete m_page;
    m_parts = {};
    m_face = face;
    m_page = new QWidget(this);
    m_layout->addWidget(m_page);

    switch (face) {
    case Face::empty:
        buildEmptyState(m_page);
        break;
    case Face::small: {
        auto *layout = new QVBoxLayout(m_page);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addStretch(1);
        layout->addWidget(makeColumn(smallValuePixelSize, m_page));
        layout->addStretch(1);
        break;
    }
    case Face::medium: {
        auto *layout = new QHBoxLayout(m_page);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(12);
        QWidget *column = makeColumn(mediumValuePixelSize, m_page);
        column->setFixedWidth(mediumColumnWidth);
        layout->addWidget(column, 0, Qt::AlignVCenter);
        m_parts.chart = new WidgetChart(false, m_page);
        layout->addWidget(m_parts.chart, 1);
        break;
    }
    case Face::large: {
        auto *layout = new QVBoxLayout(m_page);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(8);
        layout->addWidget(makeHeader(m_page));
        layout->addWidget(makeReadingRow(largeValuePixelSize, true, m_page));
        m_parts.chart = new WidgetChart(true, m_page);
        layout->addWidget(m_parts.chart, 1);
        layout->addWidget(makeStatistics(m_page));
        break;
    }
    }
}

void GlucoseWidgetView::buildEmptyState(QWidget *page)
{
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addStretch(1);
    m_parts.emptySymbol = new QLabel(page);
    m_parts.emptySymbol->setObjectName(u"emptySymbol"_s);
    layout->addWidget(m_parts.emptySymbol, 0, Qt::AlignHCenter);
    m_parts.emptyText = makeLabel<QLabel>(u"emptyText"_s, style::font(style::TextStyle::caption), page);
    m_parts.emptyText->setText(tr("Open Glinta and sign in"));
    m_parts.emptyText->setAlignment(Qt::AlignHCenter);
    m_parts.emptyText->setWordWrap(true);
    layout->addWidget(m_parts.emptyText);
    layout->addStretch(1);
}

QWidget *GlucoseWidgetView::makeHeader(QWidget *parent)
{
    auto *row = new QWidget(parent);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    const QFont caption2 = style::font(style::TextStyle::caption2);

    m_parts.dropSymbol = new QLabel(row);
    layout->addWidget(m_parts.dropSymbol, 0, Qt::AlignVCenter);
    m_parts.connection = makeLabel<ElidedLabel>(u"connection"_s, caption2, row);
    layout->addWidget(m_parts.connection, 0, Qt::AlignVCenter);
    layout->addStretch(1);
    m_parts.stale = new QLabel(row);
    m_parts.stale->setObjectName(u"stale"_s);
    m_parts.stale->setAccessibleName(tr("Data is stale"));
    layout->addWidget(m_parts.stale, 0, Qt::AlignVCenter);
    return row;
}

QWidget *GlucoseWidgetView::makeReadingRow(int valuePixelSize, bool large, QWidget *parent)
{
    auto *row = new QWidget(parent);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(large ? 6 : 4);

    const QFont value = valueFont(valuePixelSize);
    m_parts.value = makeLabel<QLabel>(u"value"_s, value, row);
    m_parts.trend = makeLabel<QLabel>(u"trend"_s, trendFont(), row);
    m_parts.unit = makeLabel<ElidedLabel>(
        u"unit"_s, style::font(large ? style::TextStyle::caption : style::TextStyle::caption2), row);
    QList<QLabel *> labels{m_parts.value, m_parts.trend, m_parts.unit};
    if (large) {
        m_parts.age = makeLabel<ElidedLabel>(u"age"_s, style::font(style::TextStyle::caption2), row);
        labels.append(m_parts.age);
    }
    // Qt lays rows out by edges, not baselines: everything sits on the bottom edge, lifted to the value's
    // baseline.
    for (QLabel *label : std::as_const(labels)) {
        if (label != m_parts.value)
            style::alignBaseline(label, value);
        layout->addWidget(label, 0, Qt::AlignBottom);
    }
    layout->addStretch(1);
    return row;
}

QWidget *GlucoseWidgetView::makeColumn(int valuePixelSize, QWidget *parent)
{
    auto *column = new QWidget(parent);
    auto *layout = new QVBoxLayout(column);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(makeHeader(column));
    layout->addWidget(makeReadingRow(valuePixelSize, false, column));
    m_parts.age = makeLabel<ElidedLabel>(u"age"_s, style::font(style::TextStyle::caption2), column);
    layout->addWidget(m_parts.age);
    return column;
}

QWidget *GlucoseWidgetView::makeStatistics(QWidget *parent)
{
    auto *block = new QWidget(parent);
    auto *layout = new QVBoxLayout(block);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    const QFont caption2 = style::font(style::TextStyle::caption2);

    m_parts.statisticsCaption = makeLabel<QLabel>(u"statisticsCaption"_s, caption2, block);
    m_parts.statisticsCaption->setText(tr("LAST 12 HOURS"));
    m_parts.statisticsCaption->setAccessibleName(tr("Statistics for the last 12 hours"));
    layout->addWidget(m_parts.statisticsCaption);

    auto *cells = new QHBoxLayout;
    cells->setSpacing(8);
    layout->addLayout(cells);
    const QFont valueFont = style::tabularDigits(style::font(style::TextStyle::callout));
    const auto addCell = [&](const QString &title, const QString &objectName) {
        auto *cell = new QVBoxLayout;
        cell->setSpacing(2);
        QLabel *heading = makeLabel<QLabel>(QString(), caption2, block);
        heading->setText(title);
        m_parts.statisticTitles.append(heading);
        QLabel *value = makeLabel<QLabel>(objectName, valueFont, block);
        cell->addWidget(heading);
        cell->addWidget(value);
        // Equal shares of the width, each cell at its leading edge.
        cells->addLayout(cell, 1);
        return value;
    };
    m_parts.average = addCell(tr("Average"), u"average"_s);
    m_parts.inRange = addCell(tr("In range"), u"inRange"_s);
    m_parts.readingCount = addCell(tr("Readings"), u"readingCount"_s);
    return block;
}

void GlucoseWidgetView::fill()
{
    const QPalette colours = palette();
    const QColor secondary = style::secondaryText(colours);

    if (m_face == Face::empty) {
        setSymbol(m_parts.emptySymbol, u"drop.circle"_s, secondary, style::TextStyle::title2);
        setTextColor(m_parts.emptyText, secondary);
        return;
    }

    const GlucoseSnapshot &snapshot = *m_entry.snapshot;
    const GlucoseReading &latest = *snapshot.latest;
    const qint64 ageMs = latest.date.msecsTo(m_entry.date);

    setSymbol(m_parts.dropSymbol, u"drop.fill"_s, secondary, style::TextStyle::caption2);
    m_parts.connection->setText(snapshot.connectionName.value_or(u"Glinta"_s));
    setTextColor(m_parts.connection, secondary);
    // Against the entry's own instant, so that entries scheduled for later turn stale by themselves.
    m_parts.stale->setVisible(isStale(latest, m_entry.date));
    setSymbol(m_parts.stale, u"clock.badge.exclamationmark"_s, style::orange(colours),
              style::TextStyle::caption2);

    m_parts.value->setText(format(snapshot.unit, latest.mgPerDl));
    setTextColor(m_parts.value, style::rangeColour(glucoseRange(latest, snapshot.targets), colours));

    m_parts.trend->setVisible(latest.trend.has_value());
    m_parts.trend->setText(latest.trend ? symbol(*latest.trend) : QString());
    m_parts.trend->setAccessibleName(latest.trend ? spokenName(*latest.trend) : QString());
    m_parts.unit->setText(rawValue(snapshot.unit));
    if (m_face == Face::medium)
        fitValueIntoColumn();
    m_parts.age->setText(
        relativeTimeText(std::chrono::duration_cast<std::chrono::seconds>(std::chrono::milliseconds(ageMs))) +
        tr(" ago"));
    for (QWidget *label : {static_cast<QWidget *>(m_parts.trend), static_cast<QWidget *>(m_parts.unit),
                           static_cast<QWidget *>(m_parts.age)})
        setTextColor(label, secondary);

    if (m_parts.chart)
        m_parts.chart->setSnapshot(snapshot);

    if (m_parts.statisticsCaption) {
        setTextColor(m_parts.statisticsCaption, style::tertiaryText(colours));
        for (QLabel *title : std::as_const(m_parts.statisticTitles))
            setTextColor(title, secondary);
        m_parts.average->setText(averageText(snapshot.history, snapshot.unit));
        m_parts.inRange->setText(inRangeText(snapshot.history, snapshot.targets));
        m_parts.readingCount->setText(readingCountText(snapshot.history));
        for (QLabel *value : {m_parts.average, m_parts.inRange, m_parts.readingCount})
            setTextColor(value, style::primaryText(colours));
    }
}

} // namespace glinta
