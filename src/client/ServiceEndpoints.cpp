#include "client/ServiceEndpoints.h"

using namespace Qt::StringLiterals;

namespace glinta {

const QStringList &ServiceEndpoints::regionCodes()
{
    static const QStringList codes{u"ae"_s, u"ap"_s, u"au"_s, u"ca"_s, u"de"_s, u"eu"_s, u"eu2"_s,
                                   u"fr"_s, u"jp"_s, u"us"_s, u"la"_s, u"ru"_s, u"cn"_s};
    return codes;
}

const ServiceEndpoints &ServiceEndpoints::production()
{
    static const ServiceEndpoints endpoints = [] {
        ServiceEndpoints result;
        result.defaultBaseUrl = QUrl(u"https://api.libreview.io"_s);
        for (const QString &code : regionCodes()) {
            QString host = u"api-"_s + code + u".libreview.io"_s;
            if (code == u"ru")
                host = u"api.libreview.ru"_s;
            else if (code == u"cn")
                host = u"api-cn.myfreestyle.cn"_s;
            result.regionBaseUrls.insert(code, QUrl(u"https://"_s + host));
        }
        return result;
    }();
    return endpoints;
}

} // namespace glinta
