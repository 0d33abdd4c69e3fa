#include "menubar/AboutView.h"

#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"

#include <QLabel>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace glinta {

QString AboutView::credits()
{
    return u"Not a medical device \u2014 do not use for treatment decisions.\n\n"
           u"Glinta's use of the LibreLinkUp service was informed by the open-source "
           u"libre-link-up-api-client project.\n\n"
           u"FreeStyle Libre, LibreLink, and LibreLinkUp are trademarks of Abbott. "
           u"Glinta is not affiliated with Abbott."_s;
}

AboutView::AboutView(const BuildInfo &build, QWidget *parent) : QWidget(parent)
{
    setFixedWidth(300);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(8);

    auto *icon = new QLabel;
    icon->setPixmap(applicationIcon().pixmap(64, 64, QIcon::Normal));
    icon->setAlignment(Qt::AlignHCenter);
    icon->setAccessibleName(u"Glinta icon"_s);
    layout->addWidget(icon);

    auto *name = new QLabel(u"Glinta"_s);
    name->setAlignment(Qt::AlignHCenter);
    style::apply(name, style::TextStyle::headline, style::primaryText(palette()));
    layout->addWidget(name);

    auto *version = new QLabel(u"Version %1 (%2)"_s.arg(build.shortVersion, build.buildNumber));
    version->setAlignment(Qt::AlignHCenter);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    style::apply(version, style::TextStyle::caption, style::secondaryText(palette()));
    layout->addWidget(version);

    layout->addSpacing(6);
    auto *text = new QLabel(credits());
    text->setObjectName(u"credits"_s);
    text->setWordWrap(true);
    text->setAlignment(Qt::AlignHCenter);
    style::apply(text, style::TextStyle::caption, style::secondaryText(palette()));
    layout->addWidget(text);
}

} // namespace glinta
