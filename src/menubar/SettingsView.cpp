#include "menubar/SettingsView.h"

#include "domain/AlertKind.h"
#include "domain/GlucoseConstants.h"
#include "domain/GlucoseUnit.h"
#include "domain/TargetRange.h"
#include "menubar/WindowRegistry.h"
#include "persistence/LoginItem.h"
#include "store/AlertEngine.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"
#include "support/Error.h"
#include "support/Logging.h"
#include "uikit/SystemStyle.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QEvent>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString launchAtLoginText = u"Launch Glinta at login"_s;
const QString readingAsTextText = u"Show the reading as text in the top bar"_s;
const QString choiceMissingText =
    u"The person you chose no longer shares data with this account, so Glinta follows the first one."_s;
const QString signOutText = u"Sign Out\u2026"_s;

GlucoseUnit unitOf(const GlucoseStore *store)
{
    return store ? store->unit() : GlucoseUnit::mgPerDl;
}

// What a typed figure stands for: `steps` whole mg/dL, or tenths of a mmol/L. Rounded half away from zero
// to whole mg/dL, so that the figure shown for a stored value gives that value back.
double mgPerDlOf(GlucoseUnit unit, qint64 steps)
{
    return unit == GlucoseUnit::mgPerDl ? double(steps)
                                        : std::round(double(steps) * mgPerDlPerMmolPerL / 10.0);
}

// Whole mg/dL, or mmol/L with at most one decimal after a point or a comma (the decimal key of many
// keyboards); nothing for anything else.
std::optional<double> parseEntry(GlucoseUnit unit, const QString &text)
{
    static const QRegularExpression wholeNumber(u"^\\s*([0-9]{1,4})\\s*$"_s);
    static const QRegularExpression oneDecimal(u"^\\s*([0-9]{1,3})(?:[.,]([0-9]))?\\s*$"_s);
    const QRegularExpressionMatch match =
        (unit == GlucoseUnit::mgPerDl ? wholeNumber : oneDecimal).match(text);
    if (!match.hasMatch())
        return std::nullopt;
    qint64 steps = match.captured(1).toLongLong();
    if (unit == GlucoseUnit::mmolPerL)
        steps = steps * 10 + match.captured(2).toLongLong();
    return mgPerDlOf(unit, steps);
}

// The first (`lowest`) or last figure that can be typed in the unit and still lands within the bound after
// the rounding, so that the hint never names a figure that would be refused.
QString boundText(GlucoseUnit unit, double boundMgPerDl, bool lowest)
{
    const double step = unit == GlucoseUnit::mgPerDl ? 1.0 : mgPerDlPerMmolPerL / 10.0;
    const int inward = lowest ? 1 : -1;
    auto steps = qint64(std::floor(boundMgPerDl / step)) - inward;
    while (lowest ? mgPerDlOf(unit, steps) < boundMgPerDl : mgPerDlOf(unit, steps) > boundMgPerDl)
        steps += inward;
    return format(unit, mgPerDlOf(unit, steps));
}

QString problemText(TargetRange::Problem problem, GlucoseUnit unit)
{
    switch (problem) {
    case TargetRange::Problem::lowOutOfBounds:
        return u"Between %1 and %2 %3"_s.arg(boundText(unit, TargetRange::lowestLow, true),
                                             boundText(unit, TargetRange::highestLow, false), rawValue(unit));
    case TargetRange::Problem::highOutOfBounds:
        return u"Between %1 and %2 %3"_s.arg(boundText(unit, TargetRange::lowestHigh, true),
                                             boundText(unit, TargetRange::highestHigh, false),
                                             rawValue(unit));
    case TargetRange::Problem::tooNarrow:
        return u"At least %1 %2 below the high"_s.arg(format(unit, TargetRange::minimumWidth),
                                                      rawValue(unit));
    }
    Q_UNREACHABLE();
    return {};
}

QString urgentLowThreshold(GlucoseUnit unit)
{
    return format(unit, AlertEngine::urgentLowMgPerDl(unit)) + u' ' + rawValue(unit);
}

QString alertSwitchText(AlertKind kind, GlucoseUnit unit)
{
    switch (kind) {
    case AlertKind::urgentLow:
        return u"Urgent low (below %1)"_s.arg(urgentLowThreshold(unit));
    case AlertKind::low:
        return u"Low (below the target range)"_s;
    case AlertKind::high:
        return u"High (above the target range)"_s;
    case AlertKind::fallingFast:
        return u"Falling fast (\u2193)"_s;
    case AlertKind::risingFast:
        return u"Rising fast (\u2191)"_s;
    case AlertKind::noReadings:
        return u"No new readings for %1 minutes"_s.arg(AlertEngine::noReadingsAge.count());
    case AlertKind::signedOut:
        break;
    }
    return {};
}

// The red line goes under its field, and a screen reader hears it with the field.
void showProblem(QFormLayout *form, QLineEdit *field, QLabel *line, const QString &problem)
{
    line->setText(problem);
    form->setRowVisible(line, !problem.isEmpty());
    field->setAccessibleDescription(problem);
}

} // namespace

SettingsView::SettingsView(GlucoseStore *store, Preferences *preferences, LoginItem *loginItem,
                           WindowRegistry *windows, bool offersReadingAsText, QWidget *parent)
    : QWidget(parent), m_store(store), m_preferences(preferences), m_loginItem(loginItem), m_windows(windows)
{
    setFixedWidth(420);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(16);

    auto *general = new QGroupBox(u"General"_s, this);
    auto *generalLayout = new QVBoxLayout(general);
    m_launchAtLogin = new QCheckBox(launchAtLoginText, general);
    m_launchAtLogin->setAccessibleName(launchAtLoginText);
    m_launchAtLogin->setEnabled(m_loginItem != nullptr);
    generalLayout->addWidget(m_launchAtLogin);
    // A system without login items Glinta can manage gets no switch that could only fail.
    if (m_loginItem && m_loginItem->status() == LoginItem::Status::notAvailable)
        m_launchAtLogin->hide();
    if (offersReadingAsText && m_preferences) {
        m_readingAsText = new QCheckBox(readingAsTextText, general);
        m_readingAsText->setAccessibleName(readingAsTextText);
        m_readingAsText->setChecked(m_preferences->showReadingAsText());
        connect(m_readingAsText, &QCheckBox::toggled, m_preferences, &Preferences::setShowReadingAsText);
        generalLayout->addWidget(m_readingAsText);
    }
    layout->addWidget(general);
    if (m_launchAtLogin->isHidden() && !m_readingAsText)
        general->hide();

    auto *target = new QGroupBox(u"Target range"_s, this);
    auto *targetLayout = new QVBoxLayout(target);
    m_targetForm = new QFormLayout;
    targetLayout->addLayout(m_targetForm);
    const auto addBound = [this, target](const QString &labelText, const QString &name,
                                         const QString &spokenName, QLabel *&problem) {
        auto *field = new QLineEdit(target);
        field->setObjectName(name);
        field->setAccessibleName(spokenName);
        field->setAlignment(Qt::AlignRight);
        // Room for "16.6" or "300" and little more, so that the unit stays beside the figure.
        field->setFixedWidth(field->fontMetrics().horizontalAdvance(u"0000.0"_s) + 12);
        auto *unit = style::plainLabel(QString(), target);
        m_unitLabels.append(unit);
        auto *row = new QHBoxLayout;
        row->addWidget(field);
        row->addWidget(unit);
        row->addStretch();
        QLabel *label = style::plainLabel(labelText, target);
        label->setBuddy(field);
        m_targetForm->addRow(label, row);
        problem = style::plainLabel(QString(), target);
        problem->setObjectName(name + u"Problem"_s);
        problem->setWordWrap(true);
        m_targetForm->addRow(QString(), problem);
        // Enter or leaving the field: typing alone must not flash a red line at every keystroke.
        connect(field, &QLineEdit::editingFinished, this, &SettingsView::applyTargetRange);
        return field;
    };
    m_targetLow = addBound(u"Low"_s, u"targetLow"_s, u"Target low"_s, m_targetLowProblem);
    m_targetHigh = addBound(u"High"_s, u"targetHigh"_s, u"Target high"_s, m_targetHighProblem);
    m_targetCaption = style::plainLabel(
        u"Colours, the chart's band, \"In range\", the widget and the alerts follow this range."_s, target);
    m_targetCaption->setWordWrap(true);
    targetLayout->addWidget(m_targetCaption);
    target->setEnabled(m_store != nullptr);
    layout->addWidget(target);

    auto *alerts = new QGroupBox(u"Alerts"_s, this);
    auto *alertsLayout = new QVBoxLayout(alerts);
    for (const AlertKind kind : allAlertKinds) {
        // Being signed out always says so: it has no switch.
        if (kind == AlertKind::signedOut)
            continue;
        auto *toggle = new QCheckBox(alerts);
        toggle->setObjectName(u"alert_"_s + alertKindName(kind));
        alertsLayout->addWidget(toggle);
        m_alertSwitches.append({kind, toggle});
        // clicked, not toggled: a box set from the preferences must not write them back.
        connect(toggle, &QCheckBox::clicked, this, [this, kind](bool on) { setAlertEnabled(kind, on); });
    }
    m_alertSound = new QCheckBox(u"Play a sound"_s, alerts);
    m_alertSound->setObjectName(u"alertSound"_s);
    alertsLayout->addWidget(m_alertSound);
    m_alertCaption = style::plainLabel(u"Glinta always tells you when LibreLinkUp signs it out."_s, alerts);
    m_alertCaption->setWordWrap(true);
    alertsLayout->addWidget(m_alertCaption);
    alerts->setEnabled(m_preferences != nullptr);
    layout->addWidget(alerts);

    m_following = new QGroupBox(u"Following"_s, this);
    m_followingLayout = new QVBoxLayout(m_following);
    m_people = new QButtonGroup(this);
    m_choiceMissing = style::plainLabel(choiceMissingText, m_following);
    m_choiceMissing->setObjectName(u"choiceMissing"_s);
    m_choiceMissing->setWordWrap(true);
    m_followingLayout->addWidget(m_choiceMissing);
    layout->addWidget(m_following);

    auto *account = new QGroupBox(u"Account"_s, this);
    m_accountForm = new QFormLayout(account);
    m_accountForm->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_account = style::plainLabel(QString(), account);
    m_account->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_account->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // A long address is cut off rather than widening the window; the tooltip still has all of it.
    m_account->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_accountForm->addRow(u"Signed in as"_s, m_account);
    m_signOut = new QPushButton(signOutText, account);
    m_signOut->setAccessibleName(signOutText);
    m_signOut->setAutoDefault(false);
    m_signOut->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_accountForm->addRow(m_signOut);
    layout->addWidget(account);

    QList<QWidget *> tabOrder{m_launchAtLogin, m_targetLow, m_targetHigh};
    for (const auto &alertSwitch : std::as_const(m_alertSwitches))
        tabOrder.append(alertSwitch.second);
    tabOrder << m_alertSound << m_signOut;
    for (qsizetype i = 1; i < tabOrder.size(); ++i)
        setTabOrder(tabOrder.at(i - 1), tabOrder.at(i));

    // clicked, not toggled: the check state set from the re-read status must not start another change.
    connect(m_launchAtLogin, &QCheckBox::clicked, this, &SettingsView::setLaunchesAtLogin);
    connect(m_signOut, &QPushButton::clicked, this, &SettingsView::confirmSignOut);
    connect(m_alertSound, &QCheckBox::clicked, this, [this](bool on) {
        if (m_preferences)
            m_preferences->setAlertSound(on);
    });
    connect(m_people, &QButtonGroup::idClicked, this, [this](int index) {
        if (m_store && index < m_store->people().size())
            m_store->choosePerson(m_store->people().at(index).patientId);
    });
    if (m_store) {
        connect(m_store, &GlucoseStore::peopleChanged, this, &SettingsView::updatePeople);
        connect(m_store, &GlucoseStore::connectionNameChanged, this, &SettingsView::updatePeople);
        connect(m_store, &GlucoseStore::savedEmailChanged, this, &SettingsView::updateAccount);
        connect(m_store, &GlucoseStore::targetRangeChanged, this, &SettingsView::showTargetRange);
        connect(m_store, &GlucoseStore::unitChanged, this, [this] {
            showTargetRange();
            updateAlerts();
        });
    }
    if (m_preferences) {
        connect(m_preferences, &Preferences::changed, this, [this](Preferences::Key key) {
            if (key == Preferences::Key::enabledAlerts || key == Preferences::Key::alertSound)
                updateAlerts();
        });
    }

    readLaunchesAtLogin();
    showTargetRange();
    updateAlerts();
    updateAccount();
    updatePeople();
}

QMessageBox *SettingsView::signOutAlert() const
{
    return m_signOutAlert.data();
}

QMessageBox *SettingsView::urgentLowAlert() const
{
    return m_urgentLowAlert.data();
}

void SettingsView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColors();
}

void SettingsView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The desktop's own startup settings may have changed the entry while the window was away.
    readLaunchesAtLogin();
    // Whom the account follows, and who has a reading now, may have changed since the last list.
    if (m_store)
        m_store->loadPeople();
}

void SettingsView::updatePeople()
{
    const QList<GlucoseStore::Person> people = m_store ? m_store->people() : QList<GlucoseStore::Person>();
    // Made again only when the list's length changes, and then later: this runs inside a click on one.
    if (m_people->buttons().size() != people.size()) {
        for (QAbstractButton *button : m_people->buttons()) {
            m_people->removeButton(button);
            button->hide();
            button->deleteLater();
        }
        QWidget *before = m_alertSound;
        for (qsizetype i = 0; i < people.size(); ++i) {
            auto *choice = new QRadioButton(m_following);
            m_people->addButton(choice, int(i));
            m_followingLayout->insertWidget(int(i), choice);
            // Tab reaches the list where it shows, between the alerts and the account.
            setTabOrder(before, choice);
            before = choice;
        }
        setTabOrder(before, m_signOut);
    }
    for (qsizetype i = 0; i < people.size(); ++i) {
        const GlucoseStore::Person &person = people.at(i);
        QAbstractButton *choice = m_people->button(int(i));
        const QString text =
            person.hasCurrentReading ? person.name : person.name + u" \u2014 no current reading"_s;
        choice->setText(text);
        choice->setAccessibleName(text);
        choice->setChecked(person.patientId == m_store->followedPatientId());
    }
    m_choiceMissing->setVisible(m_store && m_store->choiceMissing());
    m_following->setVisible(!people.isEmpty());
}

void SettingsView::readLaunchesAtLogin()
{
    m_launchesAtLogin = m_loginItem && m_loginItem->status() == LoginItem::Status::enabled;
    const QSignalBlocker blocker(m_launchAtLogin);
    m_launchAtLogin->setChecked(m_launchesAtLogin);
}

void SettingsView::setLaunchesAtLogin(bool requested)
{
    if (m_loginItem) {
        try {
            if (requested)
                m_loginItem->registerItem();
            else
                m_loginItem->unregisterItem();
        } catch (const Error &error) {
            // Nothing to tell the user beyond the toggle springing back.
            qCCritical(lcSettingsView, "Launch at Login change failed: %s",
                       qUtf8Printable(error.description()));
        }
    }
    readLaunchesAtLogin();
}

void SettingsView::confirmSignOut()
{
    askFirst(m_signOutAlert, u"Sign out of LibreLinkUp?"_s,
             u"Glinta will forget the saved password and stop showing readings. You can sign in again at "
             u"any time."_s,
             u"Sign Out"_s, true, [this] {
                 if (m_store)
                     m_store->signOut();
                 if (m_windows)
                     m_windows->dismiss(u"settings"_s);
             });
}

void SettingsView::askFirst(QPointer<QMessageBox> &slot, const QString &question, const QString &explanation,
                            const QString &accept, bool acceptByDefault, std::function<void()> confirmed)
{
    if (slot) {
        glinta::activateWindow(window());
        return;
    }

    auto *alert = new QMessageBox(this);
    alert->setIcon(QMessageBox::Warning);
    alert->setText(question);
    alert->setInformativeText(explanation);
    QPushButton *acceptButton = alert->addButton(accept, QMessageBox::AcceptRole);
    QPushButton *cancel = alert->addButton(u"Cancel"_s, QMessageBox::RejectRole);
    alert->setDefaultButton(acceptByDefault ? acceptButton : cancel);
    alert->setEscapeButton(cancel);
    slot = alert;

    connect(alert, &QMessageBox::finished, this, [alert, acceptButton, confirmed = std::move(confirmed)] {
        alert->deleteLater();
        if (alert->clickedButton() == acceptButton)
            confirmed();
    });

    glinta::activateWindow(window());
    // Window-modal and without an event loop of its own: the answer arrives through finished.
    alert->open();
}

void SettingsView::updateAccount()
{
    const std::optional<QString> email = m_store ? m_store->savedEmail() : std::nullopt;
    m_account->setText(email.value_or(u"Not signed in"_s));
    m_account->setToolTip(email.value_or(QString()));
    m_accountForm->setRowVisible(m_signOut, email.has_value());
    applyColors();
}

void SettingsView::showTargetRange()
{
    const GlucoseUnit unit = unitOf(m_store);
    const TargetRange range = m_store ? m_store->targetRange() : TargetRange();
    m_targetLow->setText(format(unit, range.lowMgPerDl));
    m_targetHigh->setText(format(unit, range.highMgPerDl));
    for (QLabel *label : std::as_const(m_unitLabels))
        label->setText(rawValue(unit));
    showProblem(m_targetForm, m_targetLow, m_targetLowProblem, QString());
    showProblem(m_targetForm, m_targetHigh, m_targetHighProblem, QString());
}

void SettingsView::applyTargetRange()
{
    if (!m_store)
        return;
    const GlucoseUnit unit = m_store->unit();
    const TargetRange stored = m_store->targetRange();
    // A field left as shown keeps the stored value: its rounded figure must not replace a finer one.
    // NaN, for text that is no figure, fails every bound.
    const auto entered = [unit](const QLineEdit *field, double storedMgPerDl) {
        if (field->text() == format(unit, storedMgPerDl))
            return storedMgPerDl;
        return parseEntry(unit, field->text()).value_or(qQNaN());
    };
    const TargetRange range{entered(m_targetLow, stored.lowMgPerDl),
                            entered(m_targetHigh, stored.highMgPerDl)};
    const std::optional<TargetRange::Problem> problem = range.problem();

    // Each bound is also judged beside the default other one, so that two bad fields both say so.
    TargetRange lowAlone;
    lowAlone.lowMgPerDl = range.lowMgPerDl;
    TargetRange highAlone;
    highAlone.highMgPerDl = range.highMgPerDl;
    QString lowProblem;
    if (lowAlone.problem())
        lowProblem = problemText(TargetRange::Problem::lowOutOfBounds, unit);
    else if (problem == TargetRange::Problem::tooNarrow)
        lowProblem = problemText(TargetRange::Problem::tooNarrow, unit);
    showProblem(m_targetForm, m_targetLow, m_targetLowProblem, lowProblem);
    showProblem(m_targetForm, m_targetHigh, m_targetHighProblem,
                highAlone.problem() ? problemText(TargetRange::Problem::highOutOfBounds, unit) : QString());
    if (problem)
        return;

    m_store->setTargetRange(range);
    // An unchanged range sends no signal, yet the fields still take the figures as Glinta writes them.
    showTargetRange();
}

void SettingsView::updateAlerts()
{
    const GlucoseUnit unit = unitOf(m_store);
    const AlertSettings settings = m_preferences ? m_preferences->alertSettings() : AlertSettings();
    for (const auto &[kind, toggle] : std::as_const(m_alertSwitches)) {
        toggle->setText(alertSwitchText(kind, unit));
        toggle->setChecked(settings.isEnabled(kind));
    }
    m_alertSound->setChecked(!m_preferences || m_preferences->alertSound());
}

void SettingsView::setAlertEnabled(AlertKind kind, bool enabled)
{
    if (kind == AlertKind::urgentLow && !enabled) {
        confirmUrgentLowOff();
        return;
    }
    if (m_preferences)
        m_preferences->setAlertEnabled(kind, enabled);
}

void SettingsView::confirmUrgentLowOff()
{
    // The click has already cleared the box; it stays on until the answer.
    updateAlerts();
    // The safe answer is the one Return and Escape give.
    askFirst(m_urgentLowAlert, u"Turn off urgent low alerts?"_s,
             u"Glinta will no longer alert you when glucose falls below %1."_s.arg(
                 urgentLowThreshold(unitOf(m_store))),
             u"Turn Off"_s, false, [this] {
                 if (m_preferences)
                     m_preferences->setAlertEnabled(AlertKind::urgentLow, false);
             });
}

void SettingsView::applyColors()
{
    const QPalette &colors = palette();
    const bool signedIn = m_store && m_store->savedEmail();
    style::apply(m_account, style::TextStyle::body,
                 signedIn ? style::primaryText(colors) : style::secondaryText(colors));
    for (QLabel *label : std::as_const(m_unitLabels))
        style::apply(label, style::TextStyle::body, style::secondaryText(colors));
    style::apply(m_targetLowProblem, style::TextStyle::caption, style::red(colors));
    style::apply(m_targetHighProblem, style::TextStyle::caption, style::red(colors));
    style::apply(m_targetCaption, style::TextStyle::caption, style::secondaryText(colors));
    style::apply(m_alertCaption, style::TextStyle::caption, style::secondaryText(colors));
}

} // namespace glinta
