#include "core/productinfo.h"

namespace ProductInfo {

QString companyName()
{
    return QStringLiteral("Tamrin");
}
QString productName()
{
    return QStringLiteral("Tamrin Calvra");
}
QString fullProductName()
{
    return QStringLiteral("Tamrin Calvra for ARM");
}
QString majorVersion()
{
    return QStringLiteral("5.");
}
QString minorVersion()
{
    return QStringLiteral("50a");
}
QString version()
{
    return majorVersion() + minorVersion();
}
QString architecture()
{
    return QStringLiteral("x64");
}
int buildStamp()
{
    return 2021060400;
}
QString buildStampText()
{
    return QStringLiteral("2021060400");
}
int buildDate()
{
    return 20210604;
}
QString buildDateText()
{
    return QStringLiteral("2021-06-04");
}
int buildTime()
{
    return 1900;
}
QString buildTimeText()
{
    return QStringLiteral("19:00:00");
}
int buildNumber()
{
    return 46451;
}
QString buildNumberText()
{
    return QStringLiteral("46451");
}
QString webAddress()
{
    return QStringLiteral("https://www.tamrin.com/calvra");
}

} // namespace ProductInfo
