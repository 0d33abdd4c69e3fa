#include "menubar/WhatsNewView.h"

#include "menubar/ReleaseNotes.h"
#include "uikit/SystemStyle.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr int contentWidth = 460;
constexpr int contentHeight = 420;
constexpr int padding = 22;
constexpr int entrySpacing = 22;
constexpr int blockSpacing = 8;
constexpr int headerSpacing = 8;
constexpr int bulletSpacing = 7;
constexpr int badgeHorizontalPadding = 6;
constexpr int badgeVerticalPadding = 2;

// The "Installed" mark: its text on a faint accent capsule. The capsule starts `lift` pixels down so
// the badge's text can share the header's baseline.
class InstalledBadge : public QLabel
{
public:
    explicit InstalledBadge(QWidget *parent) : QLabel(u"Installed"_s, parent)
    {
        setTextFormat(Qt::PlainText);
        QFont badgeFont = style::font(style::TextStyle::caption2);
        badgeFont.setWeight(QFont::Medium);
        setFont(badgeFont);
        setAlignment(Qt::AlignLeft | Qt::AlignTop);
        setLift(0);
    }

    int baseline() const { return contentsMargins().top() + fontMetrics().ascent(); }

    void setLift(int lift)
    {
        m_lift = lift;
        setContentsMargins(badgeHorizontalPadding, lift + badgeVerticalPadding, badgeHorizontalPadding,
                           badgeVerticalPadding);
    }

protected:
    void paintEvent(QPaintEvent *event) override
    {
        {
            QPainter painter(this);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(Qt::NoPen);
            QColor fill = style::accent(palette());
            fill.setAlphaF(0.15);
            painter.setBrush(fill);
            const QRectF capsule = QRectF(rect()).adjusted(0, m_lift, 0, 0);
            const qreal radius = capsule.height() / 2;
            painter.drawRoundedRect(capsule, radius, radius);
        }
        QLabel::paintEvent(event);
    }

private:
    int m_lift = 0;
};

int labelBaseline(const QLabel *label)
{
    return label->contentsMargins().top() + label->fontMetrics().ascent();
}

// Qt's box layouts cannot align on text baselines, so every item sits at the top and is pushed down by
// the difference between its baseline and the lowest one in the row.
void alignBaselines(const QList<QLabel *> &labels, InstalledBadge *badge)
{
    int lowest = 0;
    for (const QLabel *label : labels)
        lowest = std::max(lowest, labelBaseline(label));
    if (badge)
        lowest = std::max(lowest, badge->baseline());
    for (QLabel *label : labels)
        label->setContentsMargins(0, lowest - labelBaseline(label), 0, 0);
    if (badge)
        badge->setLift(lowest - badge->baseline());
}

QString accessibilityLabel(const ReleaseNote &note, bool installed)
{
    QString label = u"Version "_s + note.version + u", "_s + note.date;
    if (installed)
        label += u", installed"_s;
    return label + u". "_s + note.changes.join(u". "_s);
}

} // namespace

WhatsNewView::WhatsNewView(std::optional<QString> currentVersion, QWidget *parent)
    : QWidget(parent), m_currentVersion(std::move(currentVersion))
{
    setFixedSize(contentWidth, contentHeight);

    auto *scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidgetResizable(true);
    scroll->viewport()->setAutoFillBackground(false);

    auto *content = new QWidget;
    content->setAutoFillBackground(false);
    auto *stack = new QVBoxLayout(content);
    stack->setContentsMargins(padding, padding, padding, padding);
    stack->setSpacing(entrySpacing);
    for (const ReleaseNote &note : releaseNotes()) {
        // Exact comparison: "1.3" running must not mark "1.3.1".
        const bool installed = m_currentVersion && note.version == *m_currentVersion;
        QWidget *block = entryBlock(note, installed);
        m_entries.append(block);
        stack->addWidget(block);
    }
    stack->addStretch();
    scroll->setWidget(content);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);

    applyColors();
}

QWidget *WhatsNewView::entryBlock(const ReleaseNote &note, bool installed)
{
    auto *block = new QWidget;
    block->setObjectName(u"entry"_s);
    block->setAccessibleName(accessibilityLabel(note, installed));
    auto *column = new QVBoxLayout(block);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(blockSpacing);

    auto *header = new QHBoxLayout;
    header->setSpacing(headerSpacing);
    QLabel *version = styledLabel(note.version, style::TextStyle::headline, Tone::primary, block);
    QLabel *date = styledLabel(note.date, style::TextStyle::caption, Tone::secondary, block);
    InstalledBadge *badge = installed ? new InstalledBadge(block) : nullptr;
    if (badge)
        badge->setObjectName(u"installedBadge"_s);
    alignBaselines({version, date}, badge);
    for (QWidget *item : std::initializer_list<QWidget *>{version, date, badge}) {
        if (item)
            header->addWidget(item, 0, Qt::AlignTop);
    }
    header->addStretch();
    column->addLayout(header);

    for (const QString &change : note.changes) {
        auto *row = new QHBoxLayout;
        row->setSpacing(bulletSpacing);
        // Same font and both top-aligned, so the bullet sits on the first line of a wrapped change.
        QLabel *bullet = styledLabel(u"\u2022"_s, style::TextStyle::callout, Tone::secondary, block);
        bullet->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        QLabel *text = styledLabel(change, style::TextStyle::callout, Tone::primary, block);
        text->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        text->setWordWrap(true);
        row->addWidget(bullet, 0, Qt::AlignTop);
        row->addWidget(text, 1, Qt::AlignTop);
        column->addLayout(row);
    }
    return block;
}

QLabel *WhatsNewView::styledLabel(const QString &text, style::TextStyle textStyle, Tone tone, QWidget *parent)
{
    QLabel *label = style::plainLabel(text, parent);
    m_labels.append({label, textStyle, tone});
    // The font now, so that the header can measure baselines before the first colouring.
    label->setFont(style::font(textStyle));
    return label;
}

QStringList WhatsNewView::entryAccessibilityLabels() const
{
    QStringList labels;
    for (const QWidget *entry : m_entries)
        labels.append(entry->accessibleName());
    return labels;
}

void WhatsNewView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColors();
}

void WhatsNewView::applyColors()
{
    const QPalette &colors = palette();
    for (const StyledLabel &styled : std::as_const(m_labels)) {
        style::apply(styled.label, styled.textStyle,
                     styled.tone == Tone::primary ? style::primaryText(colors)
                                                  : style::secondaryText(colors));
    }
}

} // namespace glinta
