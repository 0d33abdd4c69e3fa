#include "client/ServiceAddressFile.h"

#include "support/DecodingError.h"
#include "support/JsonDecoding.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

QUrl toBaseUrl(const QJsonValue &value, const json::Path &at)
{
    const QUrl url(json::toString(value, at), QUrl::StrictMode);
    if (!url.isValid() || (url.scheme() != u"http" && url.scheme() != u"https") || url.host().isEmpty())
        json::throwWrongValue(value, at, u"an http or https URL"_s);
    return url;
}

} // namespace

ServiceEndpoints readServiceAddressFile(const QString &path)
{
    const json::Path root("service address file"_L1);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw DecodingError::notJson(root.document(), file.errorString());
    // A hand-written file of a few lines; anything large is not one.
    const QByteArray bytes = file.read(64 * 1024);

    const QJsonObject object = json::toObject(json::parse(bytes, root), root);
    ServiceEndpoints endpoints;
    const json::Path defaultPath = root.member("defaultBaseURL"_L1);
    endpoints.defaultBaseUrl =
        toBaseUrl(json::required(object, "defaultBaseURL"_L1, root, u"a URL"_s), defaultPath);

    if (const auto regions = json::optional(object, "regions"_L1)) {
        const json::Path regionsPath = root.member("regions"_L1);
        const QJsonObject table = json::toObject(*regions, regionsPath);
        for (auto it = table.begin(); it != table.end(); ++it) {
            const QByteArray key = it.key().toUtf8();
            const json::Path regionPath = regionsPath.member(QLatin1StringView(key));
            endpoints.regionBaseUrls.insert(it.key().toLower(), toBaseUrl(it.value(), regionPath));
        }
    }

    if (const auto caFile = json::optionalString(object, "caFile"_L1, root)) {
        endpoints.extraCaCertificates = QSslCertificate::fromPath(*caFile, QSsl::Pem);
        if (endpoints.extraCaCertificates.isEmpty())
            json::throwWrongValue(object.value("caFile"_L1), root.member("caFile"_L1),
                                  u"the path of a PEM certificate file"_s);
    }
    return endpoints;
}

} // namespace glinta
