#pragma once

#include "archive/packagearchiveiofileinterface.h"

#include <cstdio>

// The plain stream over a stdio file. It owns the file and closes it when it
// is destroyed. A read or write moves the whole block as one item and reports
// 1 when all of it moved and 0 otherwise, not a byte count; callers that
// compare against the byte count see a short transfer, which is intended.
class PackageArchiveIOFile : public PackageArchiveIOFileInterface
{
public:
    explicit PackageArchiveIOFile(FILE *file);
    ~PackageArchiveIOFile() override;
    PackageArchiveIOFile(const PackageArchiveIOFile &) = delete;
    PackageArchiveIOFile &operator=(const PackageArchiveIOFile &) = delete;

    qint32 read(char *buffer, qint32 size) override;
    qint32 write(const char *buffer, qint32 size) override;
    qint32 seek(qint64 position) override;
    bool finishWriting() override { return close(); }

    FILE *file() const { return m_file; }
    // Flushes and closes the file; false when buffered bytes could not be
    // written. The destructor closes without reporting.
    bool close();

private:
    FILE *m_file;
};
