/*
 * Package archive layout. Integers are little-endian unless marked otherwise.
 *
 * Current form, at the archive's start offset within the file:
 *   u32 magic 0x71F5C6B1
 *   u16 bits 15..12 compression kind of the body (0 zlib, 1 bzip2),
 *       bits 11..0 table version (written as 2)
 *   u16 0
 *   body: one compressed stream up to the end of the file, whose content is
 *     table header (20 bytes): u32 member count N, 16 zero bytes
 *     N records (18 bytes + name): u16 name length L, u32 data offset,
 *       u32 size, u32 mode (st_mode bits), i32 modification time (Unix
 *       seconds), L bytes of name (one byte per character, "/" separated)
 *     member data in table order, without gaps.
 *   Data offsets count from the first byte of the uncompressed table header;
 *   the first is 20 + 18 * N + the sum of the name lengths.
 *
 * Version 1 (legacy, still read and written):
 *   u32 magic 0xB231F47A, u32 1, u32 big-endian size estimate
 *   (T = 1040 * N + sum(size + 1040); T + T / 100 + 13, 32-bit arithmetic: it
 *   counts 1040 twice per member and leaves out the inner header, and stays so
 *   because old readers of the format expect those bytes)
 *   then a zlib stream holding
 *     u32 inner magic 0x4152C3C8, u32 N
 *     N records of 1040 bytes: name zero-terminated in 1024 bytes, u32 data
 *       offset (from the inner magic), u32 size, u32 read-only flag (only the
 *       first byte is read: set gives mode 0444, clear 0666), i32 time
 *     member data in table order.
 *   A current header may also announce version 1 (of either compression
 *   kind); its body is then the version 1 content from the inner magic on.
 *   A file starting with the inner magic itself is an uncompressed version 1
 *   archive; its plain stream counts whole reads as 1, so only an empty one
 *   opens.
 */
#include "archive/packagearchive.h"

#include "archive/packagearchivecompressedbzinputfile.h"
#include "archive/packagearchivecompressedgzinputfile.h"
#include "archive/packagearchiveextraction.h"
#include "archive/packagearchiveformat.h"
#include "archive/packagearchivestash.h"
#include "core/hexception.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <fnmatch.h>
#include <sys/stat.h>

using namespace PackageArchiveFormat;

namespace {

// The table is held in memory whole, and the installer holds every name about
// four times more (its item's list, the record as text while it grows, and
// as bytes): measured, a member costs the installer about 280 bytes and 9.6 a
// character of its name. A table charged more than TableBudget at these rates
// is refused, which keeps the installer, with its extraction buffers (about
// 32 MiB at most), below its 64 MiB bound for any medium. The bench's product,
// 30,000 files of names of 32 characters, is charged 18 MiB.
const quint64 TableBudget = 24 << 20;
const quint64 MemberCost = 300;
const quint64 NameCharacterCost = 10;

// Names the file and the offset, a wrong one being the usual cause; the
// offset in hexadecimal, as Setup's --data-offset takes it.
HException formatError(const QString &path, qint64 startOffset)
{
    return HException(QStringLiteral("unsupported package file format in %1 at offset 0x%2")
                          .arg(path, QString::number(startOffset, 16)));
}

// Counts the table's cost as it is read; the count is charged up front, so a
// table announcing millions of members is refused before its first record.
class TableCost
{
public:
    explicit TableCost(quint32 count) { charge(quint64(count) * MemberCost); }
    void chargeName(quint32 length) { charge(NameCharacterCost * length); }

private:
    void charge(quint64 bytes)
    {
        m_total += bytes;
        if (m_total > TableBudget)
            throw error("bad table of contents");
    }
    quint64 m_total = 0;
};

// Wildcard match: "*" any run (also across "/"), "?" one character,
// "[set]" / "[!set]" with ranges "a-z"; an unclosed "[" is a literal and a
// backslash is no escape. Names are Latin-1, one byte a character, so a
// pattern beyond Latin-1 matches none.
bool wildcardMatch(const QString &pattern, const QString &name)
{
    if (std::any_of(pattern.begin(), pattern.end(), [](QChar c) { return c.unicode() > 0xFF; }))
        return false;
    return ::fnmatch(pattern.toLatin1().constData(), name.toLatin1().constData(), FNM_NOESCAPE) == 0;
}

bool nameLess(const PackageArchiveData *left, const PackageArchiveData *right)
{
    return left->name < right->name;
}

} // namespace

struct PackageArchive::Header
{
    // The body is compressed but in the uncompressed form, which opens only
    // when empty.
    std::unique_ptr<PackageArchiveCompressedInputFile> compressed;
    std::unique_ptr<PackageArchiveIOFile> plain;
    PackageArchiveIOFileInterface &stream() const
    {
        if (compressed)
            return *compressed;
        return *plain;
    }
    quint32 version = 0;
    quint32 compression = 0;
    quint32 count = 0;
};

PackageArchive::PackageArchive(QObject *parent)
    : QObject(parent)
{ }

PackageArchive::PackageArchive(const QString &path, QObject *parent)
    : QObject(parent)
{
    open(path);
}

PackageArchive::~PackageArchive() = default;

void PackageArchive::clear()
{
    m_stream.reset();
    m_byOffset.clear();
    m_stash = std::make_unique<PackageArchiveStash>();
    m_sorted.clear();
    m_members.clear();
    m_indexed = false;
}

// A version-1 body starts with the inner magic and the member count; false
// when the magic is not there.
bool PackageArchive::readInnerHeader(Header &header)
{
    uchar inner[8];
    header.stream().read(reinterpret_cast<char *>(inner), 8);
    if (qFromLittleEndian<quint32>(inner) != InnerMagic)
        return false;
    header.count = qFromLittleEndian<quint32>(inner + 4);
    return true;
}

PackageArchive::Header PackageArchive::readHeader(const QString &path, qint64 startOffset)
{
    const QByteArray encoded = QFile::encodeName(path);
    struct stat status;
    if (::stat(encoded.constData(), &status) != 0)
        throw HException(path + QLatin1String(" does not exist"));

    FilePointer file(std::fopen(encoded.constData(), "rb"));
    if (!file)
        throw error("cannot read ", path);
    if (startOffset != 0 && ::fseeko(file.get(), off_t(startOffset), SEEK_SET) != 0)
        throw formatError(path, startOffset);
    beginRead(file.get());

    Header header;
    uchar head[HeaderSize];
    if (std::fread(head, 1, HeaderSize, file.get()) != size_t(HeaderSize))
        throw formatError(path, startOffset);

    const quint32 magic = qFromLittleEndian<quint32>(head);
    if (magic == Magic) {
        const quint16 field = qFromLittleEndian<quint16>(head + 4);
        header.compression = field >> 12;
        header.compressed = createInputFile(header.compression, file.release());
        const quint32 version = field & 0x0FFF;
        if (version != 1 && version != 2)
            throw formatError(path, startOffset);
        header.version = version;
        if (version == 1 && !readInnerHeader(header))
            throw formatError(path, startOffset);
    } else if (magic == LegacyMagic) {
        if (::fseeko(file.get(), off_t(startOffset + LegacyHeaderSize), SEEK_SET) != 0)
            throw formatError(path, startOffset);
        header.compressed = createInputFile(0, file.release());
        header.version = 1;
        if (!readInnerHeader(header))
            throw formatError(path, startOffset);
    } else if (magic == InnerMagic) {
        header.plain = std::make_unique<PackageArchiveIOFile>(file.release());
        header.version = 1;
        header.count = qFromLittleEndian<quint32>(head + 4);
    } else {
        throw formatError(path, startOffset);
    }

    if (header.version == 2) {
        uchar table[TableHeaderSize];
        if (header.stream().read(reinterpret_cast<char *>(table), TableHeaderSize) != TableHeaderSize)
            throw error("bad header");
        header.count = qFromLittleEndian<quint32>(table);
    }
    return header;
}

PackageArchive::Format PackageArchive::formatOf(const QString &path, qint64 startOffset)
{
    PackageArchive probe;
    const Header header = probe.readHeader(path, startOffset);
    Format format;
    format.version = header.version;
    format.compression = header.compression;
    format.count = header.count;
    return format;
}

void PackageArchive::open(const QString &path, qint64 startOffset, quint32 flags)
{
    clear();
    try {
        readTable(path, startOffset, flags);
    } catch (...) {
        // A table that fails half way leaves no members behind.
        clear();
        throw;
    }
}

void PackageArchive::readTable(const QString &path, qint64 startOffset, quint32 flags)
{
    Header header = readHeader(path, startOffset);
    m_indexed = (flags & SortedIndex) != 0;
    m_version = header.version;
    m_compression = header.compression;
    PackageArchiveIOFileInterface &stream = header.stream();

    // The count comes from the file; it is reserved for only once the budget
    // has taken it.
    TableCost cost(header.count);
    m_members.reserve(header.count);
    if (header.version == 1) {
        char record[LegacyRecordSize];
        for (quint32 i = 0; i < header.count; ++i) {
            if (stream.read(record, LegacyRecordSize) != LegacyRecordSize)
                throw error("bad table of contents");
            auto member = std::make_unique<PackageArchiveData>();
            member->storage = PackageArchiveData::InArchive;
            const qsizetype length = qsizetype(qstrnlen(record, LegacyNameSize));
            cost.chargeName(quint32(length));
            member->name = QString::fromLatin1(record, length);
            const uchar *fields = reinterpret_cast<const uchar *>(record) + LegacyNameSize;
            member->offset = qFromLittleEndian<quint32>(fields);
            member->size = qFromLittleEndian<quint32>(fields + 4);
            member->mode = fields[8] ? 0444 : 0666;
            member->time = QDateTime::fromSecsSinceEpoch(qFromLittleEndian<qint32>(fields + 12), Qt::UTC);
            m_members.push_back(std::move(member));
        }
    } else if (header.version == 2) {
        uchar record[RecordSize];
        QByteArray name;
        for (quint32 i = 0; i < header.count; ++i) {
            if (stream.read(reinterpret_cast<char *>(record), RecordSize) != RecordSize)
                throw error("bad table of contents");
            const quint16 length = qFromLittleEndian<quint16>(record);
            cost.chargeName(length);
            name.resize(length);
            if (length > 0 && stream.read(name.data(), length) != length)
                throw error("bad table of contents");
            auto member = std::make_unique<PackageArchiveData>();
            member->storage = PackageArchiveData::InArchive;
            member->name = QString::fromLatin1(name);
            member->offset = qFromLittleEndian<quint32>(record + 2);
            member->size = qFromLittleEndian<quint32>(record + 6);
            member->mode = qFromLittleEndian<quint32>(record + 10);
            member->time = QDateTime::fromSecsSinceEpoch(qFromLittleEndian<qint32>(record + 14), Qt::UTC);
            m_members.push_back(std::move(member));
        }
    } else {
        throw error("unsupported package file version");
    }
    if (m_indexed) {
        // One sort, not one insertion per member; stable, so that equal
        // names keep table order and the first of them is found.
        m_sorted.reserve(m_members.size());
        for (const auto &member : m_members)
            m_sorted.push_back(member.get());
        std::stable_sort(m_sorted.begin(), m_sorted.end(), nameLess);
    }
    m_stream = std::move(header.compressed);
}

PackageArchiveData *PackageArchive::appendMember(std::unique_ptr<PackageArchiveData> member)
{
    PackageArchiveData *data = member.get();
    m_members.push_back(std::move(member));
    if (m_indexed) {
        // After the equal names already there, so equal names keep table order.
        m_sorted.insert(std::upper_bound(m_sorted.begin(), m_sorted.end(), data, nameLess), data);
    }
    return data;
}

std::unique_ptr<PackageArchiveCompressedInputFile> PackageArchive::createInputFile(quint32 kind, FILE *file)
{
    switch (kind) {
    case 0:
        return std::make_unique<PackageArchiveCompressedGzInputFile>(file);
    case 1:
        return std::make_unique<PackageArchiveCompressedBzInputFile>(file);
    default:
        std::fclose(file);
        throw error("unsupported compression algorithm");
    }
}

void PackageArchive::beginRead(FILE *)
{ }

PackageArchiveFile PackageArchive::member(int index) const
{
    if (index < 0 || index >= count())
        return PackageArchiveFile();
    return PackageArchiveFile(m_members[size_t(index)].get());
}

PackageArchiveFile PackageArchive::find(const QString &name) const
{
    if (m_indexed) {
        const auto found = std::lower_bound(m_sorted.begin(), m_sorted.end(), name,
            [](const PackageArchiveData *data, const QString &key) { return data->name < key; });
        if (found != m_sorted.end() && (*found)->name == name)
            return PackageArchiveFile(*found);
        return PackageArchiveFile();
    }
    return member(indexOf(name));
}

int PackageArchive::indexOf(const QString &name) const
{
    for (size_t i = 0; i < m_members.size(); ++i) {
        if (m_members[i]->name == name)
            return int(i);
    }
    return -1;
}

QList<PackageArchiveFile> PackageArchive::entries(const QString &pattern) const
{
    QList<PackageArchiveFile> found;
    for (const auto &data : m_members) {
        if (wildcardMatch(pattern, data->name))
            found.append(PackageArchiveFile(data.get()));
    }
    return found;
}

PackageArchiveFile PackageArchive::packageDescription() const
{
    for (const auto &data : m_members) {
        if (wildcardMatch(QStringLiteral("*_package.xml"), data->name))
            return PackageArchiveFile(data.get());
    }
    return PackageArchiveFile();
}

void PackageArchive::readBody(
    const PackageArchiveData &member, const std::function<bool(QByteArray)> &deliver)
{
    const auto failure = [&member] {
        return error("cannot read file ", member.name + QLatin1String(" from archive"));
    };
    switch (m_stash->take(&member, BlockSize, deliver)) {
    case PackageArchiveStash::Delivered:
        return;
    case PackageArchiveStash::Unreadable:
        throw failure();
    case PackageArchiveStash::NotKept:
        break;
    }
    if (!m_stream)
        throw failure();
    stashUpTo(member.offset);
    if (m_stream->seek(member.offset) != 0)
        throw failure();
    m_stash->noteRead(&member);
    for (quint32 done = 0; done < member.size;) {
        const qint32 want = qint32(qMin<quint32>(member.size - done, BlockSize));
        QByteArray block(want, Qt::Uninitialized);
        if (m_stream->read(block.data(), want) != want)
            throw failure();
        if (!deliver(std::move(block)))
            return;
        done += quint32(want);
    }
}

// Reading on to offset would decompress the members in between only to drop
// them: they are kept instead, for when they are asked for.
void PackageArchive::stashUpTo(quint32 offset)
{
    if (!m_stream || m_stream->position() >= offset || !m_stash->accepting())
        return;
    if (m_byOffset.empty()) {
        for (const auto &member : m_members) {
            if (member->storage == PackageArchiveData::InArchive)
                m_byOffset.push_back(member.get());
        }
        std::stable_sort(m_byOffset.begin(), m_byOffset.end(),
            [](const PackageArchiveData *a, const PackageArchiveData *b) { return a->offset < b->offset; });
    }
    auto next = std::lower_bound(m_byOffset.begin(), m_byOffset.end(), m_stream->position(),
        [](const PackageArchiveData *member, quint64 position) { return member->offset < position; });
    for (; next != m_byOffset.end() && quint64((*next)->offset) + (*next)->size <= offset
         && m_stash->accepting();
         ++next) {
        const PackageArchiveData *member = *next;
        // Members overlapping the one before are left to seeking.
        if (member->offset < m_stream->position() || !m_stash->wants(member))
            continue;
        if (m_stream->seek(member->offset) != 0)
            return;
        m_stash->put(member, *m_stream);
    }
}

QByteArray PackageArchive::data(const QString &name)
{
    const PackageArchiveFile member = find(name);
    if (member.isNull())
        throw error("cannot read file ", name + QLatin1String(" from archive"));
    return data(member);
}

QByteArray PackageArchive::data(const PackageArchiveFile &member)
{
    return bytesOf(*member.data());
}

QByteArray PackageArchive::bytesOf(const PackageArchiveData &record)
{
    switch (record.storage) {
    case PackageArchiveData::InArchive: {
        QByteArray bytes;
        readBody(record, [&bytes](QByteArray block) {
            bytes.append(block);
            return true;
        });
        return bytes;
    }
    case PackageArchiveData::OnDisk: {
        QFile file(record.sourcePath);
        if (!file.open(QIODevice::ReadOnly))
            throw error("cannot read file ", record.name);
        QByteArray bytes = file.readAll();
        if (file.error() != QFileDevice::NoError)
            throw error("cannot read file ", record.name);
        return bytes;
    }
    case PackageArchiveData::InMemory:
        return record.bytes;
    default:
        return QByteArray();
    }
}

void PackageArchive::checkName(const QString &relativeName)
{
    if (relativeName.startsWith(QLatin1Char('/')))
        throw error("refusing absolute file name ", relativeName);
    if (relativeName.contains(QChar(0)))
        throw error("refusing file name with a zero byte ", relativeName);
    if (relativeName.split(QLatin1Char('/')).contains(QLatin1String("..")))
        throw error("refusing file name with a .. component ", relativeName);
}

void PackageArchive::extract(const PackageArchiveFile &member, const QString &directory, bool overwrite)
{
    extractTo(member, directory, member.name(), overwrite);
}

void PackageArchive::extractTo(
    const PackageArchiveFile &member, const QString &directory, const QString &relativeName, bool overwrite)
{
    PackageArchiveExtraction extraction(*this, 1);
    extraction.extract(1, [&](int) { return extraction.below(directory, member, relativeName, overwrite); });
}

void PackageArchive::extractToFile(const PackageArchiveFile &member, const QString &path, bool overwrite)
{
    PackageArchiveExtraction extraction(*this, 1);
    extraction.extract(1, [&](int) { return PackageArchiveExtraction::at(member, path, overwrite); });
}

void PackageArchive::extractAll(const QString &directory, bool overwrite)
{
    extractMembers(directory, overwrite, false);
}

void PackageArchive::extractSelected(const QString &directory, bool overwrite)
{
    extractMembers(directory, overwrite, true);
}

void PackageArchive::extractMembers(const QString &directory, bool overwrite, bool selectedOnly)
{
    std::vector<PackageArchiveFile> members;
    for (const auto &data : m_members) {
        if (!selectedOnly || data->selected)
            members.emplace_back(data.get());
    }
    PackageArchiveExtraction extraction(*this);
    extraction.extract(int(members.size()), [&](int index) {
        const PackageArchiveFile &member = members[size_t(index)];
        return extraction.below(directory, member, member.name(), overwrite);
    });
}
