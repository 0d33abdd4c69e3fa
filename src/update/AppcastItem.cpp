#include "update/AppcastItem.h"

#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr QLatin1StringView sparkleNamespace = "http://www.andymatuschak.org/xml-namespaces/sparkle"_L1;

AppcastError invalid(const QString &problem)
{
    return AppcastError(u"The update feed is not a valid appcast: "_s + problem + u'.');
}

// RSS's own elements carry no namespace; an atom:link is not the item's link.
bool isRss(const QXmlStreamReader &xml, QStringView name)
{
    return xml.namespaceUri().isEmpty() && xml.name() == name;
}

bool isSparkle(const QXmlStreamReader &xml, QStringView name)
{
    return xml.namespaceUri() == sparkleNamespace && xml.name() == name;
}

QString describeItem(qsizetype index, const QString &title)
{
    QString item = u"item "_s + QString::number(index);
    if (!title.isEmpty())
        item += u" (\u201C"_s + title + u"\u201D)"_s;
    return item;
}

// Throws for an item without a version; returns what was read when the XML itself broke off, so that the
// caller reports the XML error instead.
AppcastItem readItem(QXmlStreamReader &xml, qsizetype index)
{
    AppcastItem item;
    QString version;
    QString shortVersion;
    QString link;
    QString enclosureVersion;
    QString enclosureShortVersion;
    QString enclosureUrl;

    while (xml.readNextStartElement()) {
        if (isRss(xml, u"title")) {
            item.title = xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed();
        } else if (isRss(xml, u"link")) {
            link = xml.readElementText().trimmed();
        } else if (isRss(xml, u"description")) {
            // Usually CDATA; markup written as elements still yields its text.
            item.releaseNotes = xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed();
        } else if (isRss(xml, u"enclosure")) {
            const QXmlStreamAttributes attributes = xml.attributes();
            enclosureUrl = attributes.value("url"_L1).trimmed().toString();
            enclosureVersion = attributes.value(sparkleNamespace, "version"_L1).trimmed().toString();
            enclosureShortVersion =
                attributes.value(sparkleNamespace, "shortVersionString"_L1).trimmed().toString();
            xml.skipCurrentElement();
        } else if (isSparkle(xml, u"version")) {
            version = xml.readElementText().trimmed();
        } else if (isSparkle(xml, u"shortVersionString")) {
            shortVersion = xml.readElementText().trimmed();
        } else if (isSparkle(xml, u"releaseNotesLink")) {
            item.releaseNotesLink = QUrl(xml.readElementText().trimmed());
        } else {
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError())
        return item;

    item.version = !version.isEmpty() ? version : enclosureVersion;
    if (item.version.isEmpty())
        throw invalid(describeItem(index, item.title) + u" has no version"_s);
    if (!shortVersion.isEmpty())
        item.displayVersionString = shortVersion;
    else if (!enclosureShortVersion.isEmpty())
        item.displayVersionString = enclosureShortVersion;
    else
        item.displayVersionString = item.version;
    item.downloadPage = QUrl(!link.isEmpty() ? link : enclosureUrl);
    return item;
}

QList<AppcastItem> readChannel(QXmlStreamReader &xml)
{
    QList<AppcastItem> items;
    while (xml.readNextStartElement()) {
        if (isRss(xml, u"item"))
            items.append(readItem(xml, items.size() + 1));
        else
            xml.skipCurrentElement();
    }
    return items;
}

enum class PartType
{
    number,
    text,
    separator,
};

PartType typeOf(QChar c)
{
    if (c == u'.')
        return PartType::separator;
    if (c >= u'0' && c <= u'9')
        return PartType::number;
    // Letters, and also "-" or a space: "1.0-beta" and "1.0 beta" are pre-releases of 1.0.
    return PartType::text;
}

// Runs of one type; every separator is a part of its own, so "1..2" is not "1.2".
QList<QStringView> splitVersion(QStringView version)
{
    QList<QStringView> parts;
    qsizetype start = 0;
    for (qsizetype i = 1; i <= version.size(); ++i) {
        if (i == version.size() || typeOf(version[i]) != typeOf(version[start]) ||
            typeOf(version[start]) == PartType::separator) {
            parts.append(version.sliced(start, i - start));
            start = i;
        }
    }
    return parts;
}

int sign(qsizetype value)
{
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

// Any number of digits: without leading zeros, the longer is larger, and equal lengths compare as text.
int compareNumbers(QStringView a, QStringView b)
{
    while (a.size() > 1 && a.front() == u'0')
        a = a.sliced(1);
    while (b.size() > 1 && b.front() == u'0')
        b = b.sliced(1);
    if (a.size() != b.size())
        return sign(a.size() - b.size());
    return sign(a.compare(b));
}

} // namespace

QString AppcastError::description() const
{
    return m_problem;
}

QList<AppcastItem> parseAppcast(const QByteArray &feed)
{
    if (feed.size() > maximumAppcastSize)
        throw invalid(u"it is larger than 4 MiB"_s);
    if (feed.trimmed().isEmpty())
        throw invalid(u"it is empty"_s);

    QXmlStreamReader xml(feed);
    QList<AppcastItem> items;
    bool sawChannel = false;
    QString root;
    if (xml.readNextStartElement()) {
        root = xml.name().toString();
        while (root == u"rss" && xml.readNextStartElement()) {
            if (isRss(xml, u"channel") && !sawChannel) {
                sawChannel = true;
                items = readChannel(xml);
            } else {
                xml.skipCurrentElement();
            }
        }
    }
    // Read to the end: what follows the root element must be well-formed too.
    while (!xml.atEnd() && !xml.hasError())
        xml.readNext();

    // Said first: a web page is rarely well-formed XML, and its XML error would explain nothing.
    if (root.compare(u"html", Qt::CaseInsensitive) == 0)
        throw invalid(u"it is a web page, not an RSS feed"_s);
    if (xml.hasError()) {
        QString reason = xml.errorString();
        if (reason.endsWith(u'.'))
            reason.chop(1);
        throw invalid(u"it is not well-formed XML (line %1, column %2: %3)"_s.arg(xml.lineNumber())
                          .arg(xml.columnNumber())
                          .arg(reason));
    }
    if (root != u"rss")
        throw invalid(u"its root element is <%1>, not <rss>"_s.arg(root));
    if (!sawChannel)
        throw invalid(u"it has no channel"_s);
    return items;
}

int compareVersions(QStringView a, QStringView b)
{
    const QList<QStringView> partsA = splitVersion(a);
    const QList<QStringView> partsB = splitVersion(b);
    const qsizetype common = std::min(partsA.size(), partsB.size());

    for (qsizetype i = 0; i < common; ++i) {
        const QStringView partA = partsA[i];
        const QStringView partB = partsB[i];
        const PartType typeA = typeOf(partA.front());
        const PartType typeB = typeOf(partB.front());
        if (typeA == typeB) {
            int order = 0;
            if (typeA == PartType::number)
                order = compareNumbers(partA, partB);
            else if (typeA == PartType::text)
                order = sign(partA.compare(partB));
            if (order != 0)
                return order;
            continue;
        }
        // Text marks a pre-release, so anything else is newer; a number outranks a stray separator.
        if (typeA == PartType::text)
            return -1;
        if (typeB == PartType::text)
            return 1;
        return typeA == PartType::number ? 1 : -1;
    }

    if (partsA.size() == partsB.size())
        return 0;
    // One runs on: "1.3.1" is newer than "1.3", "1.0a1" older than "1.0".
    const bool aLonger = partsA.size() > partsB.size();
    const QStringView next = aLonger ? partsA[common] : partsB[common];
    const bool longerIsNewer = typeOf(next.front()) != PartType::text;
    return (aLonger == longerIsNewer) ? 1 : -1;
}

std::optional<AppcastItem> newestUpdate(const QList<AppcastItem> &items, QStringView runningBuild)
{
    const AppcastItem *newest = nullptr;
    for (const AppcastItem &item : items) {
        if (compareVersions(item.version, runningBuild) <= 0)
            continue;
        if (!newest || compareVersions(item.version, newest->version) > 0)
            newest = &item;
    }
    if (!newest)
        return std::nullopt;
    return *newest;
}

} // namespace glinta
