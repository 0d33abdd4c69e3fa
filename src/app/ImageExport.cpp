#include "app/ImageExport.h"

#include "menubar/DashboardView.h"
#include "menubar/GlucosePanelView.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"
#include "support/Logging.h"
#include "uikit/SystemStyle.h"
#include "widget/GlucoseWidgetView.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr qreal scale = 2;
constexpr int widgetPadding = 16;
constexpr qreal widgetCornerRadius = 22;
constexpr int panelHeight = 352;
constexpr qreal panelCornerRadius = 14;
constexpr qint64 sampleAgeSeconds = 137;

struct WidgetImage
{
    QStringView name;
    int width;
    int height;
    WidgetFamily family;
};

constexpr std::array widgetImages{
    WidgetImage{u"widget-small", 170, 170, WidgetFamily::systemSmall},
    WidgetImage{u"widget-medium", 364, 170, WidgetFamily::systemMedium},
    WidgetImage{u"widget-large", 364, 364, WidgetFamily::systemLarge},
};

constexpr std::array appearances{Appearance::light, Appearance::dark};

QString appearanceName(Appearance appearance)
{
    return appearance == Appearance::dark ? u"dark"_s : u"light"_s;
}

QColor background(Appearance appearance)
{
    return appearance == Appearance::dark ? QColor::fromRgbF(0.135f, 0.135f, 0.145f)
                                          : QColor::fromRgbF(0.945f, 0.945f, 0.951f);
}

GlucoseReading sampleReading(const QDateTime &now, double hour)
{
    GlucoseReading reading;
    reading.date = now.addMSecs(std::llround(hour * 3600 * 1000));
    reading.mgPerDl = std::sin(hour / 2.5) * 30 + 115;
    return reading;
}

// The frame drawn at twice its size on the background, everything outside the rounded corners left
// transparent. A null image when there is nothing to draw on.
QImage draw(QWidget &frame, Appearance appearance, qreal cornerRadius)
{
    const QSize size = frame.size();
    QImage content(size * scale, QImage::Format_ARGB32_Premultiplied);
    if (content.isNull())
        return {};
    content.setDevicePixelRatio(scale);
    content.fill(background(appearance));
    // Children only: a window background would be the palette's, not the picture's.
    frame.render(&content, QPoint(), QRegion(), QWidget::DrawChildren);

    QImage picture(content.size(), QImage::Format_ARGB32_Premultiplied);
    picture.setDevicePixelRatio(scale);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath shape;
    shape.addRoundedRect(QRectF(QPointF(), QSizeF(size)), cornerRadius, cornerRadius);
    // The shape as a soft-edged mask, then the content kept only where the mask is.
    painter.fillPath(shape, Qt::black);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.drawImage(QPointF(), content);
    painter.end();
    return picture;
}

QByteArray encodePng(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    if (!writer.write(image))
        return {};
    return bytes;
}

QString fileName(const QString &name, Appearance appearance)
{
    return u"glinta-"_s + name + u'-' + appearanceName(appearance) + u".png"_s;
}

} // namespace

GlucoseSnapshot sampleSnapshot(const QDateTime &now)
{
    GlucoseSnapshot snapshot;
    // Quarter hours from twelve hours ago up to now: 49 readings.
    for (int i = 0; i <= 48; ++i)
        snapshot.history.append(sampleReading(now, -12 + i * 0.25));
    GlucoseReading latest;
    latest.date = now.addSecs(-sampleAgeSeconds);
    latest.mgPerDl = 112;
    latest.trend = TrendArrow::steady;
    snapshot.latest = latest;
    snapshot.unit = GlucoseUnit::mgPerDl;
    snapshot.updatedAt = now.addSecs(-sampleAgeSeconds);
    return snapshot;
}

void renderImage(const ViewFactory &makeView, const QString &name, Appearance appearance, int width,
                 int height, qreal cornerRadius, const QString &directory)
{
    QByteArray png;
    try {
        QWidget frame;
        frame.setPalette(appearance == Appearance::dark ? style::darkPalette() : style::lightPalette());
        frame.setFixedSize(width, height);
        auto *layout = new QVBoxLayout(&frame);
        layout->setContentsMargins(0, 0, 0, 0);
        // Without an alignment a view that cannot fill the frame is centred in it.
        if (QWidget *view = makeView(&frame))
            layout->addWidget(view);
        frame.ensurePolished();
        layout->activate();
        const QImage picture = draw(frame, appearance, cornerRadius);
        if (!picture.isNull())
            png = encodePng(picture);
    } catch (const std::exception &) {
        png.clear();
    }
    if (png.isEmpty()) {
        qCCritical(lcImageExport, "Could not render %s", qUtf8Printable(name));
        return;
    }

    const QString path = QDir(directory).filePath(fileName(name, appearance));
    // A plain write: the pictures are for people to pick up, and nothing reads them half-written.
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(png) != png.size() ||
        !file.flush()) {
        qCCritical(lcImageExport, "Could not write %s: %s", qUtf8Printable(name),
                   qUtf8Printable(file.errorString()));
        return;
    }
    file.close();
    qCInfo(lcImageExport, "Wrote %s", qUtf8Printable(path));
}

void exportImages(Updater *updater, const QString &directory, const QDateTime &now)
{
    const GlucoseSnapshot sample = sampleSnapshot(now);
    for (const Appearance appearance : appearances) {
        for (const WidgetImage &image : widgetImages) {
            const auto makeWidget = [&](QWidget *parent) {
                auto *padded = new QWidget(parent);
                auto *layout = new QVBoxLayout(padded);
                layout->setContentsMargins(widgetPadding, widgetPadding, widgetPadding, widgetPadding);
                layout->addWidget(new GlucoseWidgetView(GlucoseEntry{now, sample}, image.family, padded));
                return padded;
            };
            renderImage(makeWidget, image.name.toString(), appearance, image.width, image.height,
                        widgetCornerRadius, directory);
        }

        try {
            // Display only: no preferences, no windows to open, nothing started.
            const std::unique_ptr<GlucoseStore> store = GlucoseStore::fromSnapshot(sample);
            const auto makePanel = [&](QWidget *parent) {
                auto *panel = new GlucosePanelView(store.get(), nullptr, updater, true, nullptr, parent);
                // The reading's age and staleness are judged at the sample's instant, as the widget's are.
                if (auto *dashboard = qobject_cast<DashboardView *>(panel->content()))
                    dashboard->setWallClock([now] { return now; });
                return panel;
            };
            renderImage(makePanel, u"panel"_s, appearance, GlucosePanelView::panelWidth, panelHeight,
                        panelCornerRadius, directory);
        } catch (const std::exception &) {
            qCCritical(lcImageExport, "Could not render %s", "panel");
        }
    }
}

void runLaunchExport(const Preferences &preferences, Updater *updater, const QString &directory)
{
    if (preferences.renderImages())
        exportImages(updater, directory);
}

} // namespace glinta
