#pragma once

#include "archive/packagearchivefile.h"
#include "archive/packagearchivestash.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

class PackageArchiveCompressedInputFile;
class PackageArchiveIOFileInterface;

// The product's payload format: a table of members (name, size, mode, time)
// and their bytes, compressed as one stream, possibly embedded at a byte offset
// of a larger file. One class reads and writes it. Members are owned by the
// archive; PackageArchiveFile handles point into it. Failures throw HException
// with the finished message. Used on the user-interface thread only, apart
// from the body a PackageArchiveExtraction reads on its own thread while it runs.
class PackageArchive : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(PackageArchive)

public:
    enum OpenFlag : quint32 {
        SortedIndex = 0x1, // keep a name-sorted index so find() is a binary search
    };

    // What formatOf() finds in the headers.
    struct Format
    {
        quint32 version = 0;
        quint32 compression = 0;
        quint32 count = 0;
    };

    explicit PackageArchive(QObject *parent = nullptr);
    // Opens the archive at path, offset 0, no flags.
    explicit PackageArchive(const QString &path, QObject *parent = nullptr);
    ~PackageArchive() override;

    void open(const QString &path, qint64 startOffset = 0, quint32 flags = 0);
    static Format formatOf(const QString &path, qint64 startOffset = 0);

    // Table version (1 or 2) and compression kind (0 zlib, 1 bzip2) that save()
    // writes; an open archive has those it was read with.
    quint32 version() const { return m_version; }
    void setVersion(quint32 version) { m_version = version; }
    quint32 compression() const { return m_compression; }
    void setCompression(quint32 compression) { m_compression = compression; }

    int count() const { return int(m_members.size()); }
    PackageArchiveFile member(int index) const;
    PackageArchiveFile find(const QString &name) const;
    int indexOf(const QString &name) const;
    // Members whose name matches a wildcard pattern: "*" any run of characters
    // ("/" included), "?" one character, "[...]" one of a set ("[!...]" none of it).
    QList<PackageArchiveFile> entries(const QString &pattern) const;
    // The first member matching "*_package.xml", or a null handle.
    PackageArchiveFile packageDescription() const;

    QByteArray data(const QString &name);
    QByteArray data(const PackageArchiveFile &member);

    PackageArchiveFile addFile(const QString &diskPath, const QString &name);
    PackageArchiveFile addData(const QByteArray &bytes, quint32 mode, const QString &name);

    // Writes the member to directory + "/" + its name. Names that are absolute,
    // hold a ".." component or lead through a symbolic link below directory
    // are refused before anything is written.
    void extract(const PackageArchiveFile &member, const QString &directory, bool overwrite);
    // The same for a member written under another relative name.
    void extractTo(const PackageArchiveFile &member, const QString &directory, const QString &relativeName,
        bool overwrite);
    // Writes the member to exactly path, which the caller has chosen; only a
    // symbolic link in place of the file itself is never followed.
    void extractToFile(const PackageArchiveFile &member, const QString &path, bool overwrite);
    void extractAll(const QString &directory, bool overwrite);
    void extractSelected(const QString &directory, bool overwrite);

    // Level: negative means 7, above 9 means 9.
    void save(const QString &path, int level = -1);

    // Throws when a member name may not be written below a folder: absolute,
    // holding a zero byte, or with a ".." component.
    static void checkName(const QString &relativeName);

protected:
    // The stream takes the file over in every case (it is closed on failure).
    virtual std::unique_ptr<PackageArchiveCompressedInputFile> createInputFile(quint32 kind, FILE *file);
    virtual std::unique_ptr<PackageArchiveIOFileInterface> createOutputFile(
        quint32 kind, FILE *file, quint32 level);
    // Hooks for a derived archive with a prefix of its own: called with the
    // fresh output file before anything is written, and with the input file
    // right after it has been positioned at the start offset.
    virtual void beginWrite(FILE *file);
    virtual void beginRead(FILE *file);

private:
    friend class PackageArchiveExtraction;
    struct Header;
    Header readHeader(const QString &path, qint64 startOffset);
    static bool readInnerHeader(Header &header);
    void readTable(const QString &path, qint64 startOffset, quint32 flags);
    void clear();
    PackageArchiveData *appendMember(std::unique_ptr<PackageArchiveData> member);
    void writeBody(const QString &path, quint32 level);
    // The names as stored; throws for a name the version cannot hold.
    std::vector<QByteArray> storedNames() const;
    std::vector<quint32> bodyOffsets(const std::vector<QByteArray> &names) const;
    // Write the header and the table of contents into the file, which they
    // take over, and return the stream the members follow in.
    std::unique_ptr<PackageArchiveIOFileInterface> writeLegacyTable(FILE *output, quint32 level,
        const std::vector<QByteArray> &names, const std::vector<quint32> &offsets);
    std::unique_ptr<PackageArchiveIOFileInterface> writeTable(FILE *output, quint32 level,
        const std::vector<QByteArray> &names, const std::vector<quint32> &offsets);
    void writeMembers(PackageArchiveIOFileInterface &stream);
    void extractMembers(const QString &directory, bool overwrite, bool selectedOnly);
    // Hands a member's bytes from the body to deliver in blocks (until it
    // returns false), taking them from the stash when they were passed
    // before, and stashing the members it passes on the way. Throws
    // "cannot read file ... from archive".
    void readBody(const PackageArchiveData &member, const std::function<bool(QByteArray)> &deliver);
    // What data() returns for the member.
    QByteArray bytesOf(const PackageArchiveData &record);
    void stashUpTo(quint32 offset);

    std::vector<std::unique_ptr<PackageArchiveData>> m_members;
    std::vector<PackageArchiveData *> m_sorted;
    bool m_indexed = false;
    // The body, null for the uncompressed form (which is empty).
    std::unique_ptr<PackageArchiveCompressedInputFile> m_stream;
    // The body's members by offset, made when first needed.
    std::vector<const PackageArchiveData *> m_byOffset;
    std::unique_ptr<PackageArchiveStash> m_stash = std::make_unique<PackageArchiveStash>();
    quint32 m_version = 1;
    quint32 m_compression = 0;
};
