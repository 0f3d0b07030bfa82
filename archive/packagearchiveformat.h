#pragma once

#include "core/hexception.h"

#include <QString>

#include <cstdio>
#include <memory>

// The numbers of the package archive layout (packagearchive.cpp starts with
// its description) and what its reader and writer share.
namespace PackageArchiveFormat {

const quint32 Magic = 0x71F5C6B1;
const quint32 LegacyMagic = 0xB231F47A;
const quint32 InnerMagic = 0x4152C3C8;
const int HeaderSize = 8;
const int LegacyHeaderSize = 12;
const int TableHeaderSize = 20;
const int RecordSize = 18;
const int LegacyRecordSize = 1040;
const int LegacyNameSize = 1024;
const quint32 ModeMask = 0xE1FF;
// Members move between disk and streams in blocks of this size.
const qint32 BlockSize = 1 << 20;

inline HException error(const char *text)
{
    return HException(QString::fromLatin1(text));
}

inline HException error(const char *text, const QString &subject)
{
    return HException(QString::fromLatin1(text) + subject);
}

struct FileCloser
{
    void operator()(FILE *file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<FILE, FileCloser>;

} // namespace PackageArchiveFormat
