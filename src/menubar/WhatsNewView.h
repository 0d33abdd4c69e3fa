#pragma once

#include "uikit/SystemStyle.h"

#include <QList>
#include <QWidget>

#include <optional>

class QLabel;

namespace glinta {

struct ReleaseNote;

// The content of the "whats-new" window: every release with its changes, newest first, the running one
// marked "Installed".
class WhatsNewView : public QWidget
{
    Q_OBJECT

public:
    explicit WhatsNewView(std::optional<QString> currentVersion, QWidget *parent = nullptr);

    // What a screen reader says for each entry, in list order.
    QStringList entryAccessibilityLabels() const;

protected:
    void changeEvent(QEvent *event) override;

private:
    enum class Tone
    {
        primary,
        secondary,
    };
    struct StyledLabel
    {
        QLabel *label;
        style::TextStyle textStyle;
        Tone tone;
    };

    QWidget *entryBlock(const ReleaseNote &note, bool installed);
    QLabel *styledLabel(const QString &text, style::TextStyle textStyle, Tone tone, QWidget *parent);
    void applyColors();

    std::optional<QString> m_currentVersion;
    QList<QWidget *> m_entries;
    QList<StyledLabel> m_labels;
};

} // namespace glinta
