// packarchive: the package archive tool for building installation media.

#include "archive/packagearchive.h"
#include "core/hexception.h"
#include "tools/packarchive/appendingpackagearchive.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cstdio>
#include <sys/stat.h>

namespace {

const char HelpText[] = "Usage: packarchive <command> [options] ...\n"
                        "\n"
                        "Builds, lists, extracts and checks package archives.\n"
                        "\n"
                        "Commands:\n"
                        "  create [options] ARCHIVE FOLDER...\n"
                        "      Writes the files below each FOLDER into ARCHIVE, named relative to\n"
                        "      their FOLDER, in name order. Symbolic links are stored as the files\n"
                        "      they point to; empty folders are not stored.\n"
                        "        -v1, -v2          table version (default 2; version 1 is always zlib)\n"
                        "        --zlib, --bzip2   compression (default zlib)\n"
                        "        -0 ... -9         compression level (default 7; bzip2 needs 1 to 9)\n"
                        "        --append          keep ARCHIVE's bytes and write the archive behind\n"
                        "                          them; prints the offset at which it starts,\n"
                        "                          in hexadecimal as Setup's --data-offset takes it\n"
                        "  list [--offset N] ARCHIVE\n"
                        "      One line per member: mode (octal), size, time (UTC), name.\n"
                        "  extract [--offset N] [--overwrite] ARCHIVE FOLDER [MEMBER...]\n"
                        "      Writes every member, or the named ones, below FOLDER. Existing\n"
                        "      files are kept (an error) unless --overwrite is given.\n"
                        "  verify [--offset N] ARCHIVE\n"
                        "      Reads every member end to end and reports the first fault.\n"
                        "\n"
                        "On failure it prints \"error: \" and the reason and exits with status 1.\n";

void fail(const QString &message)
{
    throw HException(message);
}

// The command's options and operands: the options a command takes are known
// to the parser, anything else is refused in the parser's words.
struct Command
{
    Command(const QStringList &arguments, const QList<QCommandLineOption> &options)
    {
        // "-v1" and "-9" are options of their own, not bundles of letters.
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
        parser.addOptions(options);
        if (!parser.parse(QStringList(QStringLiteral("packarchive")) + arguments))
            fail(parser.errorText() + QStringLiteral(" (see packarchive --help)"));
        operands = parser.positionalArguments();
    }

    bool isSet(const QString &name) const { return parser.isSet(name); }
    // The archive's start in the file: --offset N, decimal or 0x hexadecimal.
    qint64 offset() const
    {
        if (!parser.isSet(QStringLiteral("offset")))
            return 0;
        bool ok = false;
        const QString value = parser.value(QStringLiteral("offset"));
        const qint64 offset = value.toLongLong(&ok, 0);
        if (!ok || offset < 0)
            fail(QStringLiteral("not an offset: ") + value);
        return offset;
    }

    QCommandLineParser parser;
    QStringList operands;
};

const QCommandLineOption OffsetOption(QStringLiteral("offset"), QString(), QStringLiteral("N"));

// Adds the files below folder in name order, named relative to root.
void addFolder(PackageArchive &archive, const QString &root, const QString &relative)
{
    const QDir folder(relative.isEmpty() ? root : root + QLatin1Char('/') + relative);
    const QStringList names
        = folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &name : names) {
        const QString member = relative.isEmpty() ? name : relative + QLatin1Char('/') + name;
        const QString path = root + QLatin1Char('/') + member;
        struct stat status;
        if (::stat(QFile::encodeName(path).constData(), &status) != 0)
            fail(QStringLiteral("cannot read ") + path);
        if (S_ISDIR(status.st_mode))
            addFolder(archive, root, member);
        else if (S_ISREG(status.st_mode))
            archive.addFile(path, member);
        else
            fail(QStringLiteral("not a regular file: ") + path);
    }
}

int create(const QStringList &arguments)
{
    QList<QCommandLineOption> options;
    for (const char *name : { "v1", "v2", "zlib", "bzip2", "append" })
        options.append(QCommandLineOption(QLatin1String(name)));
    for (char digit = '0'; digit <= '9'; ++digit)
        options.append(QCommandLineOption(QString(QLatin1Char(digit))));
    const Command command(arguments, options);
    // The last of a pair given wins, as in other archivers.
    const QStringList given = command.parser.optionNames();
    quint32 version = 2;
    quint32 compression = 0;
    int level = -1;
    for (const QString &name : given) {
        if (name == QLatin1String("v1") || name == QLatin1String("v2"))
            version = name == QLatin1String("v1") ? 1 : 2;
        else if (name == QLatin1String("zlib") || name == QLatin1String("bzip2"))
            compression = name == QLatin1String("bzip2") ? 1 : 0;
        else if (name.at(0).isDigit())
            level = name.at(0).digitValue();
    }
    const bool append = command.isSet(QStringLiteral("append"));
    QStringList operands = command.operands;
    if (operands.size() < 2)
        fail(QStringLiteral("create needs an archive and at least one folder"));
    if (version == 1 && compression == 1)
        fail(QStringLiteral("version 1 archives are always zlib"));

    const QString path = operands.takeFirst();
    if (append && !QFileInfo(path).isFile())
        fail(path + QStringLiteral(" does not exist"));
    const QString output = append ? path + QStringLiteral(".packarchive-new") : path;
    qint64 offset = 0;
    {
        AppendingPackageArchive appended(path);
        PackageArchive plain;
        PackageArchive &archive = append ? static_cast<PackageArchive &>(appended) : plain;
        archive.setVersion(version);
        archive.setCompression(compression);
        for (const QString &folder : operands) {
            if (!QFileInfo(folder).isDir())
                fail(QStringLiteral("not a folder: ") + folder);
            addFolder(archive, QDir::cleanPath(folder), QString());
        }
        if (append)
            offset = QFileInfo(path).size();
        try {
            archive.save(output, level);
        } catch (const HException &) {
            if (append)
                QFile::remove(output);
            throw;
        }
    }
    if (append) {
        // Keep the original's mode: a data file may be an executable.
        QFile::setPermissions(output, QFile::permissions(path));
        if (std::rename(QFile::encodeName(output).constData(), QFile::encodeName(path).constData()) != 0) {
            QFile::remove(output);
            fail(QStringLiteral("cannot replace ") + path);
        }
        // In hexadecimal, as Setup's --data-offset takes it; the 0x form is
        // what --offset here takes.
        std::printf("archive starts at offset 0x%llx (give Setup --data-offset %llx)\n",
            static_cast<unsigned long long>(offset), static_cast<unsigned long long>(offset));
    }
    return 0;
}

int list(const QStringList &arguments)
{
    const Command command(arguments, { OffsetOption });
    if (command.operands.size() != 1)
        fail(QStringLiteral("list needs one archive"));
    PackageArchive archive;
    archive.open(command.operands.first(), command.offset());
    for (int i = 0; i < archive.count(); ++i) {
        const PackageArchiveFile member = archive.member(i);
        std::printf("%06o %10u %s %s\n", member.mode(), member.size(),
            qPrintable(member.time().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))),
            QFile::encodeName(member.name()).constData());
    }
    return 0;
}

int extract(const QStringList &arguments)
{
    const Command command(arguments, { OffsetOption, QCommandLineOption(QStringLiteral("overwrite")) });
    QStringList operands = command.operands;
    const bool overwrite = command.isSet(QStringLiteral("overwrite"));
    if (operands.size() < 2)
        fail(QStringLiteral("extract needs an archive and a folder"));
    PackageArchive archive;
    archive.open(operands.takeFirst(), command.offset(), PackageArchive::SortedIndex);
    const QString folder = operands.takeFirst();
    if (operands.isEmpty()) {
        archive.extractAll(folder, overwrite);
        return 0;
    }
    for (const QString &name : std::as_const(operands)) {
        PackageArchiveFile member = archive.find(name);
        if (member.isNull())
            fail(QStringLiteral("no member ") + name);
        member.setSelected(true);
    }
    archive.extractSelected(folder, overwrite);
    return 0;
}

int verify(const QStringList &arguments)
{
    const Command command(arguments, { OffsetOption });
    if (command.operands.size() != 1)
        fail(QStringLiteral("verify needs one archive"));
    PackageArchive archive;
    archive.open(command.operands.first(), command.offset());
    quint64 bytes = 0;
    for (int i = 0; i < archive.count(); ++i) {
        const PackageArchiveFile member = archive.member(i);
        try {
            bytes += quint64(archive.data(member).size());
        } catch (const HException &error) {
            fail(member.name() + QStringLiteral(": ") + error.message());
        }
    }
    std::printf("ok: %d members, %llu bytes\n", archive.count(), static_cast<unsigned long long>(bytes));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    const QString command = arguments.isEmpty() ? QString() : arguments.takeFirst();
    try {
        if (command == QLatin1String("--help") || command == QLatin1String("-h")
            || command == QLatin1String("help")) {
            std::fputs(HelpText, stdout);
            return 0;
        }
        if (command == QLatin1String("create"))
            return create(arguments);
        if (command == QLatin1String("list"))
            return list(arguments);
        if (command == QLatin1String("extract"))
            return extract(arguments);
        if (command == QLatin1String("verify"))
            return verify(arguments);
        fail(command.isEmpty() ? QStringLiteral("no command given (see packarchive --help)")
                               : QStringLiteral("unknown command ") + command);
    } catch (const HException &error) {
        std::fflush(stdout);
        std::fprintf(stderr, "error: %s\n", error.what());
        return 1;
    }
    return 1;
}
