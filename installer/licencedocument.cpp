#include "installer/licencedocument.h"

#include <QResource>

namespace LicenceDocument {

QByteArray bytes()
{
    // Stored uncompressed, so the resource's data is the document itself.
    const QResource resource(QStringLiteral(":/license.html"));
    if (!resource.isValid() || resource.compressionAlgorithm() != QResource::NoCompression)
        return QByteArray();
    return QByteArray::fromRawData(reinterpret_cast<const char *>(resource.data()), int(resource.size()));
}

} // namespace LicenceDocument
