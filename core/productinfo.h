#pragma once

#include <QString>

// The fixed facts about the product this installer installs. Every function
// returns a constant; they fill the macro table and the titles.
namespace ProductInfo {

QString companyName();
QString productName();
QString fullProductName();
QString majorVersion();
QString minorVersion();
QString version();
QString architecture();
int buildStamp();
QString buildStampText();
int buildDate();
QString buildDateText();
int buildTime();
QString buildTimeText();
int buildNumber();
QString buildNumberText();
QString webAddress();

} // namespace ProductInfo
