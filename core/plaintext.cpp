#include "core/plaintext.h"

#include "core/macrotable.h"

#include <QRegularExpression>

QString plainLines(const QString &text)
{
    static const QRegularExpression lineBreak(
        QStringLiteral("\\s*<(p|br|/p)\\s*/?>\\s*"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression tag(QStringLiteral("<[^>]*>"));
    static const QRegularExpression blankLines(QStringLiteral("\n{2,}"));
    QString plain = expandMacros(text);
    plain.replace(lineBreak, QStringLiteral("\n"));
    plain.remove(tag);
    plain.replace(blankLines, QStringLiteral("\n"));
    return plain.trimmed();
}

QString plainLine(const QString &text)
{
    return plainLines(text).replace(QLatin1Char('\n'), QLatin1Char(' '));
}
