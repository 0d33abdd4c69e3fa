// Saves a picture of the whole X screen as PNG: the tests, the demo and developers use it to look at
// Glinta on a display that nobody watches.
#include <QCommandLineParser>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QScreen>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Saves a PNG picture of the X screen."_s);
    parser.addHelpOption();
    parser.addPositionalArgument(u"file"_s, u"Where to write the PNG."_s);
    const QCommandLineOption crop(u"crop"_s, u"Only the rectangle x,y,width,height."_s, u"rect"_s);
    const QCommandLineOption zoom(u"zoom"_s, u"Enlarge by this whole factor, pixels kept sharp."_s, u"n"_s,
                                  u"1"_s);
    parser.addOptions({crop, zoom});
    parser.process(app);
    if (parser.positionalArguments().size() != 1)
        parser.showHelp(2);

    QScreen *screen = QGuiApplication::primaryScreen();
    QImage picture = screen ? screen->grabWindow(0).toImage() : QImage();
    if (parser.isSet(crop)) {
        const QStringList parts = parser.value(crop).split(u',');
        if (parts.size() != 4)
            parser.showHelp(2);
        picture = picture.copy(parts[0].toInt(), parts[1].toInt(), parts[2].toInt(), parts[3].toInt());
    }
    const int factor = std::max(1, parser.value(zoom).toInt());
    if (factor > 1)
        picture = picture.scaled(picture.size() * factor, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    const QString file = parser.positionalArguments().constFirst();
    if (picture.isNull() || !picture.save(file, "PNG")) {
        std::fprintf(stderr, "glinta-shot: could not write %s\n", qPrintable(file));
        return 1;
    }
    return 0;
}
