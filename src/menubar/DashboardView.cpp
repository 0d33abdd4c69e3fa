#include "menubar/DashboardView.h"

#include "domain/GlucoseStatistics.h"
#include "domain/RelativeTime.h"
#include "menubar/GearMenu.h"
#include "menubar/GlucoseChartView.h"
#include "menubar/StaticUnitPicker.h"
#include "menubar/WindowRegistry.h"
#include "store/GlucoseStore.h"
#include "uikit/ProgressSpinner.h"
#include "uikit/SymbolLabel.h"
#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"

#include <QButtonGroup>
#include <QCursor>
#include <QEvent>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

namespace {

QFont valueFont()
{
    QFont font = style::font(style::TextStyle::body);
    font.setPixelSize(36);
    font.setWeight(QFont::DemiBold);
    return font;
}

QLabel *makeLabel(const QString &objectName, QWidget *parent)
{
    QLabel *label = style::plainLabel(QString(), parent);
    label->setObjectName(objectName);
    return label;
}

void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    widget->setPalette(palette);
}

QToolButton *makeSymbolButton(const QString &objectName, const QString &toolTip, const QString &spoken,
                              QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(objectName);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::TabFocus);
    button->setToolTip(toolTip);
    button->setAccessibleName(spoken);
    return button;
}

} // namespace

DashboardView::DashboardView(GlucoseStore *store, Updater *updater, bool rendersForImage,
                             WindowRegistry *windows, QWidget *parent)
    : QWidget(parent), m_store(store), m_updater(updater), m_rendersForImage(rendersForImage),
      m_windows(windows), m_wallClock([] { return QDateTime::currentDateTimeUtc(); })
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);

    layout->addWidget(makeHeaderRow());
    layout->addWidget(makeAlertLine());
    layout->addWidget(makeReadingRow());
    layout->addWidget(makeWaitingRow());

    layout->addWidget(makeFailureLine());

    layout->addWidget(new GlucoseChartView(store, this));

    layout->addWidget(makeStatistics());

    m_divider = new QFrame(this);
    m_divider->setFrameShape(QFrame::HLine);
    m_divider->setFrameShadow(QFrame::Plain);
    layout->addWidget(m_divider);

    layout->addWidget(makeControlsRow());

    m_ageTimer.setInterval(1s);
    connect(&m_ageTimer, &QTimer::timeout, this, &DashboardView::updateAge);

    for (auto changed :
         {&GlucoseStore::statusChanged, &GlucoseStore::latestChanged, &GlucoseStore::historyChanged,
          &GlucoseStore::connectionNameChanged, &GlucoseStore::unitChanged, &GlucoseStore::savedEmailChanged,
          &GlucoseStore::credentialFailureChanged, &GlucoseStore::targetRangeChanged,
          &GlucoseStore::activeAlertChanged})
        connect(store, changed, this, &DashboardView::updateContents);

    updateColors();
    updateContents();
}

void DashboardView::setWallClock(WallClock clock)
{
    m_wallClock = std::move(clock);
    updateContents();
}

QWidget *DashboardView::makeHeaderRow()
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);

    m_connection = new SymbolLabel(u"drop.fill"_s, style::TextStyle::caption, row);
    m_connection->setObjectName(u"connection"_s);
    layout->addWidget(m_connection, 0, Qt::AlignVCenter);
    layout->addStretch(1);

    m_stale = new SymbolLabel(u"clock.badge.exclamationmark"_s, style::TextStyle::caption, row);
    m_stale->setObjectName(u"stale"_s);
    m_stale->setText(tr("Stale"));
    m_stale->setToolTip(tr("The newest reading is more than 15 minutes old."));
    layout->addWidget(m_stale, 0, Qt::AlignVCenter);
    return row;
}

QWidget *DashboardView::makeReadingRow()
{
    m_readingRow = new QWidget(this);
    auto *layout = new QHBoxLayout(m_readingRow);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    m_value = makeLabel(u"value"_s, m_readingRow);
    m_value->setFont(valueFont());
    m_trend = makeLabel(u"trend"_s, m_readingRow);
    m_trend->setFont(style::font(style::TextStyle::title2));
    m_unit = makeLabel(u"unit"_s, m_readingRow);
    m_unit->setFont(style::font(style::TextStyle::caption));
    m_age = makeLabel(u"age"_s, m_readingRow);
    m_age->setFont(style::font(style::TextStyle::caption));

    // Everything sits on the row's bottom edge, lifted to the value's baseline.
    for (QLabel *label : {m_trend, m_unit, m_age})
        style::alignBaseline(label, m_value->font());
    layout->addWidget(m_value, 0, Qt::AlignBottom);
    layout->addWidget(m_trend, 0, Qt::AlignBottom);
    layout->addWidget(m_unit, 0, Qt::AlignBottom);
    layout->addStretch(1);
    layout->addWidget(m_age, 0, Qt::AlignBottom);
    return m_readingRow;
}

QWidget *DashboardView::makeWaitingRow()
{
    m_waitingRow = new QWidget(this);
    auto *layout = new QHBoxLayout(m_waitingRow);
    layout->setContentsMargins(0, 0, 0, 0);

    m_waiting = makeLabel(u"waiting"_s, m_waitingRow);
    m_waiting->setText(tr("Waiting for data…"));
    m_waiting->setFont(style::font(style::TextStyle::body));
    layout->addWidget(m_waiting, 0, Qt::AlignVCenter);
    layout->addStretch(1);
    m_spinner = new ProgressSpinner(16, m_waitingRow);
    m_spinner->setObjectName(u"spinner"_s);
    layout->addWidget(m_spinner, 0, Qt::AlignVCenter);
    return m_waitingRow;
}

QWidget *DashboardView::makeAlertLine()
{
    m_alertLine = new QWidget(this);
    auto *layout = new QHBoxLayout(m_alertLine);
    layout->setContentsMargins(0, 0, 0, 0);

    m_alert = new SymbolLabel(u"exclamationmark.triangle"_s, style::TextStyle::headline, m_alertLine);
    m_alert->setObjectName(u"alert"_s);
    layout->addWidget(m_alert, 1, Qt::AlignVCenter);

    m_snooze = new QToolButton(m_alertLine);
    m_snooze->setObjectName(u"snooze"_s);
    m_snooze->setText(tr("Snooze"));
    m_snooze->setAccessibleName(tr("Snooze the alert"));
    m_snooze->setFont(style::font(style::TextStyle::caption));
    m_snooze->setFocusPolicy(Qt::TabFocus);
    m_snooze->setPopupMode(QToolButton::InstantPopup);
    auto *choices = new QMenu(m_snooze);
    for (const auto &[text, duration] :
         {std::pair(tr("Snooze 30 min"), 30min), std::pair(tr("Snooze 2 h"), 120min)}) {
        choices->addAction(text, this, [this, duration] {
            if (const std::optional<AlertKind> alert = m_store->activeAlert())
                Q_EMIT snoozeRequested(*alert, duration);
        });
    }
    m_snooze->setMenu(choices);
    layout->addWidget(m_snooze, 0, Qt::AlignVCenter);
    return m_alertLine;
}

QWidget *DashboardView::makeFailureLine()
{
    m_failureLine = new QWidget(this);
    auto *layout = new QVBoxLayout(m_failureLine);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    m_failure = new SymbolLabel(u"exclamationmark.triangle"_s, style::TextStyle::caption, m_failureLine);
    m_failure->setObjectName(u"failure"_s);
    m_failure->setWordWrap(true);
    layout->addWidget(m_failure);

    m_signInAgain = new QPushButton(tr("Sign In Again…"), m_failureLine);
    m_signInAgain->setObjectName(u"signInAgain"_s);
    m_signInAgain->setAccessibleName(tr("Sign In Again"));
    m_signInAgain->setFont(style::font(style::TextStyle::caption));
    m_signInAgain->setAutoDefault(false);
    m_signInAgain->setFocusPolicy(Qt::TabFocus);
    connect(m_signInAgain, &QPushButton::clicked, this, [this] { openWindow(u"login"_s); });
    layout->addWidget(m_signInAgain, 0, Qt::AlignLeft);
    return m_failureLine;
}

QWidget *DashboardView::makeStatistics()
{
    auto *block = new QWidget(this);
    auto *layout = new QVBoxLayout(block);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);

    m_statisticsCaption = makeLabel(u"statisticsCaption"_s, block);
    m_statisticsCaption->setText(tr("LAST 12 HOURS"));
    m_statisticsCaption->setAccessibleName(tr("Statistics for the last 12 hours"));
    layout->addWidget(m_statisticsCaption);

    auto *cells = new QHBoxLayout;
    cells->setSpacing(0);
    layout->addLayout(cells);
    const auto addCell = [&](const QString &title, const QString &objectName) {
        auto *cell = new QVBoxLayout;
        cell->setSpacing(2);
        QLabel *heading = makeLabel(QString(), block);
        heading->setText(title);
        m_statisticTitles.append(heading);
        QLabel *value = makeLabel(objectName, block);
        value->setFont(style::tabularDigits(style::font(style::TextStyle::callout)));
        cell->addWidget(heading);
        cell->addWidget(value);
        if (cells->count() > 0)
            cells->addStretch(1);
        cells->addLayout(cell);
        return value;
    };
    m_average = addCell(tr("Average"), u"average"_s);
    m_inRange = addCell(tr("In range"), u"inRange"_s);
    m_readingCount = addCell(tr("Readings"), u"readingCount"_s);
    return block;
}

QWidget *DashboardView::makeControlsRow()
{
    auto *row = new QWidget(this);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);

    layout->addWidget(makeUnitPicker(), 0, Qt::AlignVCenter);
    layout->addStretch(1);

    m_refresh = makeSymbolButton(u"refresh"_s, tr("Refresh now"), tr("Refresh"), row);
    connect(m_refresh, &QToolButton::clicked, this, [this] {
        // Not awaited: the outcome shows in the store's status, and the button stays usable.
        [](GlucoseStore *store) -> QCoro::Task<void> { co_await store->refresh(); }(m_store);
    });
    layout->addWidget(m_refresh, 0, Qt::AlignVCenter);

    m_gear = makeSymbolButton(u"gear"_s, tr("Settings"), tr("Settings"), row);
    connect(m_gear, &QToolButton::clicked, this, &DashboardView::showGearMenu);
    layout->addWidget(m_gear, 0, Qt::AlignVCenter);
    return row;
}

QWidget *DashboardView::makeUnitPicker()
{
    constexpr int pickerWidth = 130;
    if (m_rendersForImage) {
        m_staticPicker = new StaticUnitPicker(m_store->unit(), this);
        m_staticPicker->setObjectName(u"unitPicker"_s);
        m_staticPicker->setFixedWidth(pickerWidth);
        return m_staticPicker;
    }

    auto *picker = new QWidget(this);
    picker->setObjectName(u"unitPicker"_s);
    picker->setAccessibleName(tr("Unit"));
    picker->setFixedWidth(pickerWidth);
    auto *layout = new QHBoxLayout(picker);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_unitButtons = new QButtonGroup(picker);
    m_unitButtons->setExclusive(true);
    for (std::size_t i = 0; i < allGlucoseUnits.size(); ++i) {
        auto *segment = new QToolButton(picker);
        segment->setText(rawValue(allGlucoseUnits[i]));
        segment->setCheckable(true);
        segment->setFont(style::font(style::TextStyle::caption));
        segment->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        m_unitButtons->addButton(segment, int(i));
        layout->addWidget(segment);
    }
    // Clicks only: the store setting the unit moves the selection without writing it back.
    connect(m_unitButtons, &QButtonGroup::idClicked, this,
            [this](int id) { m_store->setUnit(allGlucoseUnits[std::size_t(id)]); });
    return picker;
}

void DashboardView::updateContents()
{
    const std::optional<GlucoseReading> latest = m_store->latest();
    const GlucoseStore::Status status = m_store->status();
    const GlucoseUnit unit = m_store->unit();
    const QPalette &colors = palette();

    m_connection->setText(m_store->connectionName().value_or(u"LibreLinkUp"_s));
    // Judged by the wall clock whenever the dashboard changes or is shown, not by the passing of time.
    m_stale->setVisible(latest && isStale(*latest, m_wallClock()));

    const std::optional<AlertKind> alert = m_store->activeAlert();
    m_alertLine->setVisible(alert.has_value());
    if (alert) {
        m_alert->setText(alertTitle(*alert, latest, unit));
        m_alert->setColor(isLowAlert(*alert) ? style::red(colors) : style::orange(colors));
        // Nothing to snooze in a picture.
        m_snooze->setVisible(!m_rendersForImage);
    }

    m_readingRow->setVisible(latest.has_value());
    m_waitingRow->setVisible(!latest);
    m_spinner->setVisible(!latest && status.kind == GlucoseStore::Status::Kind::connecting);
    if (latest) {
        m_value->setText(format(unit, latest->mgPerDl));
        setTextColor(m_value, style::rangeColour(glucoseRange(*latest, m_store->targetRange()), colors));
        m_trend->setVisible(latest->trend.has_value());
        m_trend->setText(latest->trend ? symbol(*latest->trend) : QString());
        m_trend->setAccessibleName(latest->trend ? spokenName(*latest->trend) : QString());
        m_unit->setText(rawValue(unit));
        updateAge();
    }

    const bool failed = status.kind == GlucoseStore::Status::Kind::failed;
    // Polling stays stopped until the account signs in again; while such a sign-in runs, the line waits
    // for its outcome.
    const bool blocked = m_store->credentialFailure() && m_store->savedEmail() &&
                         status.kind != GlucoseStore::Status::Kind::connecting;
    m_failureLine->setVisible(failed || blocked);
    // A Refresh that got through, or a password gone from the keyring, leaves no message of its own.
    m_failure->setText(failed    ? status.message
                       : blocked ? tr("Glinta stopped updating. Sign in again to continue.")
                                 : QString());
    m_signInAgain->setVisible(blocked);

    const QList<GlucoseReading> history = m_store->history();
    m_average->setText(averageText(history, unit));
    m_inRange->setText(inRangeText(history, m_store->targetRange()));
    m_readingCount->setText(readingCountText(history));

    if (m_unitButtons)
        m_unitButtons->button(int(std::ranges::find(allGlucoseUnits, unit) - allGlucoseUnits.begin()))
            ->setChecked(true);
    if (m_staticPicker)
        m_staticPicker->setUnit(unit);
}

void DashboardView::updateAge()
{
    const std::optional<GlucoseReading> latest = m_store->latest();
    if (!latest)
        return;
    const auto age = std::chrono::seconds(latest->date.secsTo(m_wallClock()));
    m_age->setText(relativeTimeText(age) + tr(" ago"));
}

void DashboardView::updateColors()
{
    const QPalette &colors = palette();
    const QColor secondary = style::secondaryText(colors);
    m_connection->setColor(secondary);
    m_stale->setColor(style::orange(colors));
    m_failure->setColor(style::orange(colors));
    for (QLabel *label : {m_trend, m_unit, m_age, m_waiting})
        setTextColor(label, secondary);
    style::apply(m_statisticsCaption, style::TextStyle::caption2, style::tertiaryText(colors));
    for (QLabel *title : std::as_const(m_statisticTitles))
        style::apply(title, style::TextStyle::caption2, secondary);
    for (QLabel *value : {m_average, m_inRange, m_readingCount})
        setTextColor(value, style::primaryText(colors));
    setTextColor(m_divider, style::quaternaryFill(colors));
    m_refresh->setIcon(symbolIcon(u"arrow.clockwise"_s, secondary));
    m_gear->setIcon(symbolIcon(u"gearshape"_s, secondary));
}

void DashboardView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && m_gear) {
        updateColors();
        updateContents();
    }
}

void DashboardView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    updateContents();
    m_ageTimer.start();
}

void DashboardView::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_ageTimer.stop();
}

QMenu *DashboardView::buildGearMenu()
{
    return makeGearMenu(
        m_windows, m_updater, [this] { Q_EMIT quitRequested(); }, this);
}

void DashboardView::showGearMenu()
{
    QMenu *menu = buildGearMenu();
    // Gone once it closes; an item chosen from it still runs, as deletion waits for the event loop.
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    menu->popup(QCursor::pos());
}

void DashboardView::openWindow(const QString &identifier)
{
    if (m_windows)
        m_windows->open(identifier);
}

} // namespace glinta
