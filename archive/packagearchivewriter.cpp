#include "archive/packagearchive.h"

#include "archive/packagearchivecompressedbzoutputfile.h"
#include "archive/packagearchivecompressedgzoutputfile.h"
#include "archive/packagearchiveformat.h"
#include "core/descriptor.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace PackageArchiveFormat;

namespace {

// The table holds a name one byte a character; any other character would be
// stored as "?".
bool isLatin1(const QString &name)
{
    return std::all_of(name.cbegin(), name.cend(), [](QChar c) { return c.unicode() <= 0xFF; });
}

// Reads a disk member into its stream in blocks; false when the file cannot be
// read or ends early.
bool copyDiskFile(const QString &path, quint32 size, PackageArchiveIOFileInterface &stream, bool &writeFailed)
{
    Descriptor in(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0)
        return false;
    QByteArray block(qMin<quint32>(size, BlockSize), Qt::Uninitialized);
    quint32 left = size;
    while (left > 0) {
        const qint32 want = qint32(qMin<quint32>(left, BlockSize));
        qint32 got = 0;
        while (got < want) {
            const ssize_t n = ::read(in.get(), block.data() + got, size_t(want - got));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return false;
            got += qint32(n);
        }
        if (stream.write(block.constData(), want) != want) {
            writeFailed = true;
            return false;
        }
        left -= quint32(want);
    }
    return true;
}

} // namespace

std::unique_ptr<PackageArchiveIOFileInterface> PackageArchive::createOutputFile(
    quint32 kind, FILE *file, quint32 level)
{
    switch (kind) {
    case 0:
        return std::make_unique<PackageArchiveCompressedGzOutputFile>(file, level);
    case 1:
        return std::make_unique<PackageArchiveCompressedBzOutputFile>(file, level);
    default:
        std::fclose(file);
        throw error("unsupported compression algorithm");
    }
}

void PackageArchive::beginWrite(FILE *)
{ }

PackageArchiveFile PackageArchive::addFile(const QString &diskPath, const QString &name)
{
    Descriptor file(::open(QFile::encodeName(diskPath).constData(), O_RDONLY | O_CLOEXEC));
    struct stat status;
    if (file.get() < 0 || ::fstat(file.get(), &status) != 0)
        throw error("cannot read ", diskPath);
    // Sizes and offsets in the table are 32 bits wide.
    if (quint64(status.st_size) > 0xFFFFFFFFu)
        throw error("file too large ", diskPath);
    auto member = std::make_unique<PackageArchiveData>();
    member->storage = PackageArchiveData::OnDisk;
    member->name = name;
    member->sourcePath = diskPath;
    member->size = quint32(status.st_size);
    member->mode = status.st_mode & ModeMask;
    member->time = QDateTime::fromSecsSinceEpoch(status.st_mtime, Qt::UTC);
    return PackageArchiveFile(appendMember(std::move(member)));
}

PackageArchiveFile PackageArchive::addData(const QByteArray &bytes, quint32 mode, const QString &name)
{
    const int existing = indexOf(name);
    if (existing >= 0) {
        // Replaces what the member holds; it keeps its place and its time.
        PackageArchiveData &record = *m_members[size_t(existing)];
        record.storage = PackageArchiveData::InMemory;
        record.bytes = bytes;
        record.size = quint32(bytes.size());
        record.mode = mode;
        return PackageArchiveFile(&record);
    }
    auto member = std::make_unique<PackageArchiveData>();
    member->storage = PackageArchiveData::InMemory;
    member->name = name;
    member->bytes = bytes;
    member->size = quint32(bytes.size());
    member->mode = mode;
    member->time = QDateTime::currentDateTimeUtc();
    return PackageArchiveFile(appendMember(std::move(member)));
}

void PackageArchive::save(const QString &path, int level)
{
    if (level < 0)
        level = 7;
    if (level > 9)
        level = 9;
    if (m_version != 1 && m_version != 2)
        throw error("unsupported package file version");
    writeBody(path, quint32(level));
}

void PackageArchive::writeBody(const QString &path, quint32 level)
{
    // Refused before the output is opened, so nothing is written.
    const std::vector<QByteArray> names = storedNames();
    const std::vector<quint32> offsets = bodyOffsets(names);

    FilePointer file(std::fopen(QFile::encodeName(path).constData(), "wb"));
    if (!file)
        throw error("cannot open output file");
    beginWrite(file.get());
    const std::unique_ptr<PackageArchiveIOFileInterface> stream = m_version == 1
        ? writeLegacyTable(file.release(), level, names, offsets)
        : writeTable(file.release(), level, names, offsets);
    writeMembers(*stream);
    // Flush the compressor and the file now, so that a full disk is reported.
    if (!stream->finishWriting())
        throw error("error writing to compressed stream");
}

std::vector<QByteArray> PackageArchive::storedNames() const
{
    const bool legacy = m_version == 1;
    std::vector<QByteArray> names;
    names.reserve(m_members.size());
    for (const auto &data : m_members) {
        if (!isLatin1(data->name))
            throw error("refusing file name outside Latin-1 ",
                data->storage == PackageArchiveData::OnDisk ? data->sourcePath : data->name);
        names.push_back(data->name.toLatin1());
        if (names.back().size() > (legacy ? LegacyNameSize - 1 : 65535))
            throw error("filename too long");
    }
    return names;
}

// Where each member will start: behind the table, which holds the names in
// version 2 and fixed records in version 1. Offsets are 32 bits wide, so an
// archive body must stay below 4 GiB.
std::vector<quint32> PackageArchive::bodyOffsets(const std::vector<QByteArray> &names) const
{
    const bool legacy = m_version == 1;
    const quint64 count = m_members.size();
    quint64 offset
        = legacy ? 8 + quint64(LegacyRecordSize) * count : TableHeaderSize + quint64(RecordSize) * count;
    if (!legacy) {
        for (const QByteArray &name : names)
            offset += quint64(name.size());
    }
    std::vector<quint32> offsets;
    offsets.reserve(m_members.size());
    for (const auto &data : m_members) {
        offsets.push_back(quint32(offset));
        offset += data->size;
    }
    if (offset > 0xFFFFFFFFu)
        throw error("archive too large");
    return offsets;
}

std::unique_ptr<PackageArchiveIOFileInterface> PackageArchive::writeLegacyTable(
    FILE *output, quint32 level, const std::vector<QByteArray> &names, const std::vector<quint32> &offsets)
{
    FilePointer file(output);
    const quint32 count = quint32(m_members.size());
    quint32 total = LegacyRecordSize * count;
    for (const auto &data : m_members)
        total += data->size + LegacyRecordSize;
    uchar header[LegacyHeaderSize];
    qToLittleEndian<quint32>(LegacyMagic, header);
    qToLittleEndian<quint32>(1, header + 4);
    qToBigEndian<quint32>(total + total / 100 + 13, header + 8);
    if (std::fwrite(header, 1, LegacyHeaderSize, file.get()) != size_t(LegacyHeaderSize))
        throw error("cannot write header");
    std::unique_ptr<PackageArchiveIOFileInterface> stream = createOutputFile(0, file.release(), level);
    uchar inner[8];
    qToLittleEndian<quint32>(InnerMagic, inner);
    qToLittleEndian<quint32>(count, inner + 4);
    if (stream->write(reinterpret_cast<char *>(inner), 8) != 8)
        throw error("cannot write header2");
    for (size_t i = 0; i < m_members.size(); ++i) {
        const PackageArchiveData &data = *m_members[i];
        char record[LegacyRecordSize] = {};
        std::copy(names[i].cbegin(), names[i].cend(), record);
        uchar *fields = reinterpret_cast<uchar *>(record) + LegacyNameSize;
        qToLittleEndian<quint32>(offsets[i], fields);
        qToLittleEndian<quint32>(data.size, fields + 4);
        qToLittleEndian<quint32>(PackageArchiveFile(m_members[i].get()).isReadOnly() ? 1 : 0, fields + 8);
        qToLittleEndian<qint32>(qint32(data.time.toSecsSinceEpoch()), fields + 12);
        if (stream->write(record, LegacyRecordSize) != LegacyRecordSize)
            throw error("cannot write table of contents");
    }
    return stream;
}

std::unique_ptr<PackageArchiveIOFileInterface> PackageArchive::writeTable(
    FILE *output, quint32 level, const std::vector<QByteArray> &names, const std::vector<quint32> &offsets)
{
    FilePointer file(output);
    uchar header[HeaderSize];
    qToLittleEndian<quint32>(Magic, header);
    qToLittleEndian<quint16>(quint16((m_compression & 0xF) << 12 | 2), header + 4);
    qToLittleEndian<quint16>(0, header + 6);
    if (std::fwrite(header, 1, HeaderSize, file.get()) != size_t(HeaderSize))
        throw error("cannot write header");
    std::unique_ptr<PackageArchiveIOFileInterface> stream
        = createOutputFile(m_compression, file.release(), level);
    uchar table[TableHeaderSize] = {};
    qToLittleEndian<quint32>(quint32(m_members.size()), table);
    if (stream->write(reinterpret_cast<char *>(table), TableHeaderSize) != TableHeaderSize)
        throw error("cannot write header2");
    for (size_t i = 0; i < m_members.size(); ++i) {
        const PackageArchiveData &data = *m_members[i];
        uchar record[RecordSize];
        qToLittleEndian<quint16>(quint16(names[i].size()), record);
        qToLittleEndian<quint32>(offsets[i], record + 2);
        qToLittleEndian<quint32>(data.size, record + 6);
        qToLittleEndian<quint32>(data.mode, record + 10);
        qToLittleEndian<qint32>(qint32(data.time.toSecsSinceEpoch()), record + 14);
        if (stream->write(reinterpret_cast<char *>(record), RecordSize) != RecordSize)
            throw error("cannot write table of contents");
        const qint32 length = qint32(names[i].size());
        if (length > 0 && stream->write(names[i].constData(), length) != length)
            throw error("cannot write table of contents filename");
    }
    return stream;
}

void PackageArchive::writeMembers(PackageArchiveIOFileInterface &stream)
{
    for (const auto &data : m_members) {
        if (data->size == 0)
            continue;
        if (data->storage == PackageArchiveData::OnDisk) {
            bool writeFailed = false;
            if (!copyDiskFile(data->sourcePath, data->size, stream, writeFailed))
                throw writeFailed ? error("cannot write file") : error("cannot read file ", data->name);
            continue;
        }
        const QByteArray bytes = data->storage == PackageArchiveData::InMemory
            ? data->bytes
            : this->data(PackageArchiveFile(data.get()));
        for (qsizetype done = 0; done < bytes.size();) {
            const qint32 want = qint32(qMin<qsizetype>(bytes.size() - done, BlockSize));
            if (stream.write(bytes.constData() + done, want) != want)
                throw error("cannot write file");
            done += want;
        }
    }
}
