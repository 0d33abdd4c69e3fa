#include "menubar/UpdateBannerView.h"

#include "store/Preferences.h"
#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"
#include "update/Updater.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr int symbolSize = 16;
constexpr qreal cornerRadius = 8;

QColor withAlpha(QColor color, qreal alpha)
{
    color.setAlphaF(alpha);
    return color;
}

} // namespace

UpdateBannerView::UpdateBannerView(Updater *updater, Preferences *preferences, QWidget *parent)
    : QAbstractButton(parent), m_updater(updater), m_preferences(preferences), m_symbol(new QLabel(this)),
      m_title(new QLabel(this)), m_subtitle(new QLabel(this))
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);

    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(8, 6, 8, 6);
    row->setSpacing(8);
    m_symbol->setFixedSize(symbolSize, symbolSize);
    row->addWidget(m_symbol, 0, Qt::AlignVCenter);
    auto *column = new QVBoxLayout;
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(m_title);
    column->addWidget(m_subtitle);
    row->addLayout(column, 1);

    m_subtitle->setText(tr("Click to install"));
    for (QLabel *label : {m_symbol, m_title, m_subtitle}) {
        label->setTextFormat(Qt::PlainText);
        // A button's children would take its ButtonText role and drop the colours set below.
        label->setForegroundRole(QPalette::WindowText);
        // The whole row is the button.
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    updateColors();

    connect(this, &QAbstractButton::clicked, this, &UpdateBannerView::install);
    if (m_preferences) {
        connect(m_preferences, &Preferences::changed, this, [this](Preferences::Key key) {
            if (key == Preferences::Key::availableUpdateVersion)
                reload();
        });
    }
    reload();
}

void UpdateBannerView::reload()
{
    m_waitingVersion = m_preferences ? m_preferences->availableUpdateVersion() : std::nullopt;
    if (!m_waitingVersion) {
        hide();
        return;
    }
    const QString available = tr("Glinta %1 is available").arg(*m_waitingVersion);
    m_title->setText(available);
    setAccessibleName(tr("Glinta %1 is available. Click to install.").arg(*m_waitingVersion));
    // A banner without a parent is a window of its own, shown by whoever owns it.
    if (!isWindow())
        show();
}

void UpdateBannerView::updateColors()
{
    const QPalette &colors = palette();
    m_symbol->setPixmap(symbolPixmap(u"arrow.down.circle.fill"_s, style::accent(colors), symbolSize, 2.0));
    style::apply(m_title, style::TextStyle::caption, style::primaryText(colors));
    QFont titleFont = m_title->font();
    titleFont.setWeight(QFont::Medium);
    m_title->setFont(titleFont);
    style::apply(m_subtitle, style::TextStyle::caption2, style::secondaryText(colors));
}

void UpdateBannerView::install()
{
    // Gone first, so that the dot and the row disappear at once, whatever the user does next.
    if (m_preferences)
        m_preferences->removeAvailableUpdateVersion();
    // The update window brings itself to the front; nothing else needs raising here.
    if (m_updater)
        m_updater->checkForUpdates();
}

void UpdateBannerView::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = style::accent(palette());
    const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(Qt::NoPen);
    painter.setBrush(withAlpha(accent, isDown() ? 0.2 : 0.12));
    painter.drawRoundedRect(area, cornerRadius, cornerRadius);
    // A ring only when the keyboard brought focus here, not because the panel opened on this row.
    if (hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(withAlpha(accent, 0.6), 1.5));
        painter.drawRoundedRect(area.adjusted(0.75, 0.75, -0.75, -0.75), cornerRadius, cornerRadius);
    }
}

void UpdateBannerView::changeEvent(QEvent *event)
{
    QAbstractButton::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        updateColors();
}

void UpdateBannerView::keyPressEvent(QKeyEvent *event)
{
    // Space is the button's own; Return counts as well, as for the default button of a row.
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && !event->isAutoRepeat()) {
        click();
        return;
    }
    QAbstractButton::keyPressEvent(event);
}

} // namespace glinta
