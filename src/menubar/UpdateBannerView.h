#pragma once

#include <QAbstractButton>
#include <QPointer>

#include <optional>

class QLabel;

namespace glinta {

class Preferences;
class Updater;

// The panel's row for an update that a scheduled check found: hidden (and taking no room) while no
// update waits, otherwise a flat button that hands over to the update window.
class UpdateBannerView : public QAbstractButton
{
    Q_OBJECT

public:
    UpdateBannerView(Updater *updater, Preferences *preferences, QWidget *parent = nullptr);

    const std::optional<QString> &waitingVersion() const { return m_waitingVersion; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void reload();
    void updateColors();
    void install();

    QPointer<Updater> m_updater;
    QPointer<Preferences> m_preferences;
    std::optional<QString> m_waitingVersion;
    QLabel *m_symbol;
    QLabel *m_title;
    QLabel *m_subtitle;
};

} // namespace glinta
