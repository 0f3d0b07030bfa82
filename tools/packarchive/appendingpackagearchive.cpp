#include "tools/packarchive/appendingpackagearchive.h"

#include "core/hexception.h"

#include <QFile>

AppendingPackageArchive::AppendingPackageArchive(const QString &prefixPath, QObject *parent)
    : PackageArchive(parent)
    , m_prefixPath(prefixPath)
{ }

void AppendingPackageArchive::beginWrite(FILE *file)
{
    QFile prefix(m_prefixPath);
    if (!prefix.open(QIODevice::ReadOnly))
        throw HException(QStringLiteral("cannot read ") + m_prefixPath);
    QByteArray block;
    while (!(block = prefix.read(1 << 20)).isEmpty()) {
        if (std::fwrite(block.constData(), 1, size_t(block.size()), file) != size_t(block.size()))
            throw HException(QStringLiteral("cannot write header"));
    }
    if (prefix.error() != QFileDevice::NoError)
        throw HException(QStringLiteral("cannot read ") + m_prefixPath);
}
