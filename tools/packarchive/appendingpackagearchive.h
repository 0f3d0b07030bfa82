#pragma once

#include "archive/packagearchive.h"

// An archive written behind the bytes of an existing file, so that a data file
// can carry it at an offset. The prefix is copied in beginWrite().
class AppendingPackageArchive : public PackageArchive
{
    Q_OBJECT
    Q_DISABLE_COPY(AppendingPackageArchive)

public:
    explicit AppendingPackageArchive(const QString &prefixPath, QObject *parent = nullptr);

protected:
    void beginWrite(FILE *file) override;

private:
    QString m_prefixPath;
};
