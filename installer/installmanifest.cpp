#include "installer/installmanifest.h"

#include "core/descriptor.h"
#include "core/fileutils.h"
#include "core/heldfolder.h"
#include "core/macrotable.h"
#include "core/sha256.h"
#include "core/writtendigests.h"
#include "installer/installsettingsrecord.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installconfigurationstate.h"
#include "plan/installfilesconfigurationitem.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QThread>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

// Large enough that a read costs little beside the hash, small enough for
// a worker's buffer.
const int BlockSize = 1 << 20;
// A manifest larger than this is none this installer wrote (about 300,000
// files).
const qint64 MaxSize = qint64(64) << 20;
// How much of a manifest is made before it is written out.
const int PieceSize = 64 << 10;

struct State
{
    bool exists = false;
    bool regular = false;
    qint64 size = 0;
    mode_t mode = 0;
    QByteArray sha256;
};

// With trustWritten, a file this run wrote and has not changed since is
// taken at the digest noted while writing it, without reading it back.
State inspect(const HeldFolder &folder, const QByteArray &name, QByteArray &buffer, bool trustWritten)
{
    State state;
    struct stat status;
    if (trustWritten && ::fstatat(folder.fd(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
        && S_ISREG(status.st_mode)) {
        state.sha256 = WrittenDigests::find(status);
        if (!state.sha256.isEmpty())
            return { true, true, status.st_size, mode_t(status.st_mode & 07777), state.sha256 };
    }
    const Descriptor file(
        ::openat(folder.fd(), name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    // A file this user may not read is still measured: only its content
    // stays unknown, and so differs.
    if (file.get() < 0 ? ::fstatat(folder.fd(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0
                       : ::fstat(file.get(), &status) != 0)
        return state;
    state.exists = true;
    state.regular = S_ISREG(status.st_mode);
    state.size = status.st_size;
    state.mode = status.st_mode & 07777;
    if (!state.regular || file.get() < 0)
        return state;
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    Sha256 hash;
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer.data(), size_t(buffer.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            // Unreadable content cannot be the content recorded.
            state.sha256.clear();
            return state;
        }
        if (got == 0)
            break;
        hash.addData(buffer.constData(), got);
    }
    state.sha256 = hash.result();
    return state;
}

// Every name below destination, on one worker per core taking the next name
// as it is free, so a long file holds up one core only.
QVector<State> inspectAll(const QString &destination, const QStringList &names, bool trustWritten)
{
    QVector<State> states(names.size());
    // Each worker writes only its own elements, never the vector itself.
    State *results = states.data();
    std::atomic<int> next { 0 };
    auto work = [&] {
        const HeldFolder root = HeldFolder::open(destination);
        QByteArray buffer(BlockSize, Qt::Uninitialized);
        QString folderName;
        HeldFolder folder;
        for (int i = next++; i < names.size(); i = next++) {
            const QString &name = names.at(i);
            const int slash = name.lastIndexOf(QLatin1Char('/'));
            const QString folderOfName = slash < 0 ? QString() : name.left(slash);
            if (!folder.isValid() || folderOfName != folderName) {
                folder = root.isValid() ? root.below(folderOfName) : HeldFolder();
                folderName = folderOfName;
            }
            results[i] = inspect(folder, QFile::encodeName(name.mid(slash + 1)), buffer, trustWritten);
        }
    };
    const int workers = std::max(1, std::min<int>(QThread::idealThreadCount(), int(names.size())));
    std::vector<std::thread> threads;
    for (int i = 1; i < workers; ++i)
        threads.emplace_back(work);
    work();
    for (std::thread &thread : threads)
        thread.join();
    return states;
}

QByteArray escaped(const QByteArray &name)
{
    return QByteArray(name).replace('\\', "\\\\").replace('\n', "\\n");
}

// Undoes escaped(); false on any other backslash sequence.
bool unescape(const QByteArray &text, QByteArray &name)
{
    name.clear();
    for (int i = 0; i < text.size(); ++i) {
        if (text.at(i) != '\\') {
            name.append(text.at(i));
        } else if (i + 1 < text.size() && (text.at(i + 1) == '\\' || text.at(i + 1) == 'n')) {
            name.append(text.at(++i) == 'n' ? '\n' : '\\');
        } else {
            return false;
        }
    }
    return true;
}

bool parseAttributes(const QByteArray &line, InstallManifest::Entry &entry)
{
    // "# MMMM SIZE"
    if (line.size() < 8 || line.size() > 26 || !line.startsWith("# ") || line.at(6) != ' ')
        return false;
    bool modeOk = false;
    bool sizeOk = false;
    const QByteArray mode = line.mid(2, 4);
    const QByteArray size = line.mid(7);
    for (const char c : mode) {
        if (c < '0' || c > '7')
            return false;
    }
    for (const char c : size) {
        if (c < '0' || c > '9')
            return false;
    }
    entry.mode = mode_t(mode.toUInt(&modeOk, 8));
    entry.size = size.toLongLong(&sizeOk);
    return modeOk && sizeOk;
}

bool parseFile(const QByteArray &line, InstallManifest::Entry &entry)
{
    const bool isEscaped = line.startsWith('\\');
    const QByteArray rest = isEscaped ? line.mid(1) : line;
    if (rest.size() < 67 || rest.mid(64, 2) != "  ")
        return false;
    for (const char c : rest.left(64)) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    QByteArray name = rest.mid(66);
    if (isEscaped && !unescape(rest.mid(66), name))
        return false;
    entry.sha256 = QByteArray::fromHex(rest.left(64));
    entry.name = QFile::decodeName(name);
    return InstallConfigurationState::isPlainRelativeName(entry.name);
}

} // namespace

QString InstallManifest::defaultPath()
{
    return expandMacros(QStringLiteral("$(InstallerDir)/manifest.sha256"));
}

QStringList InstallManifest::installedFiles(const InstallConfigurationItem *root, const QString &destination)
{
    QStringList paths;
    if (const auto *archive = qobject_cast<const InstallArchiveConfigurationItem *>(root)) {
        const QString folder = expandMacros(archive->destination()) + QLatin1Char('/');
        for (const QString &name : archive->files())
            paths.append(folder + name);
    } else if (const auto *files = qobject_cast<const InstallFilesConfigurationItem *>(root)) {
        if (files->installed() != InstallConfigurationItem::notInstalled)
            paths = files->targets();
    }
    QStringList names;
    const QString prefix = QDir::cleanPath(destination) + QLatin1Char('/');
    for (const QString &path : std::as_const(paths)) {
        const QString clean = QDir::cleanPath(path);
        if (clean.startsWith(prefix))
            names.append(clean.mid(prefix.size()));
    }
    for (const InstallConfigurationItem *child : root->children())
        names += installedFiles(child, destination);
    names.removeDuplicates();
    return names;
}

bool InstallManifest::write(const QString &path, const QString &destination, const QStringList &names)
{
    const QVector<State> states = inspectAll(destination, names, true);
    int next = 0;
    // Made and written a piece at a time: whole, a manifest of tens of
    // thousands of files would add megabytes to the installation's peak.
    return FileUtils::writeFile(path, [&](QByteArray &piece) {
        for (; next < names.size() && piece.size() < PieceSize; ++next) {
            const State &state = states.at(next);
            if (!state.regular || state.sha256.isEmpty())
                continue;
            const QByteArray name = QFile::encodeName(names.at(next));
            const bool plain = !name.contains('\\') && !name.contains('\n');
            char head[32];
            const int length = std::snprintf(head, sizeof head, "# %04o %lld\n", unsigned(state.mode & 07777),
                static_cast<long long>(state.size));
            piece.append(head, length);
            if (!plain)
                piece.append('\\');
            piece.append(state.sha256.toHex());
            piece.append("  ");
            piece.append(plain ? name : escaped(name));
            piece.append('\n');
        }
        return next < names.size();
    });
}

QString InstallManifest::read(const QString &path, QList<Entry> &entries)
{
    entries.clear();
    QByteArray content;
    const QString failure
        = InstallSettingsRecord::readTrusted(path, content, MaxSize, QStringLiteral("installation manifest"));
    if (!failure.isEmpty())
        return failure;
    if (!content.isEmpty() && !content.endsWith('\n'))
        return QStringLiteral("it is damaged: it ends inside a line");
    const QList<QByteArray> lines = content.split('\n');
    // Nothing of a damaged manifest is believed, not even its first lines.
    auto damaged = [&entries](qsizetype line) {
        entries.clear();
        return QStringLiteral("it is damaged: line %1").arg(line);
    };
    QSet<QString> seen;
    for (int i = 0; i + 1 < lines.size(); i += 2) {
        Entry entry;
        if (!parseAttributes(lines.at(i), entry))
            return damaged(i + 1);
        if (i + 2 >= lines.size() || !parseFile(lines.at(i + 1), entry) || seen.contains(entry.name))
            return damaged(i + 2);
        seen.insert(entry.name);
        entries.append(entry);
    }
    return QString();
}

QList<InstallManifest::Finding> InstallManifest::check(
    const QString &destination, const QList<Entry> &entries)
{
    QStringList names;
    names.reserve(entries.size());
    for (const Entry &entry : entries)
        names.append(entry.name);
    // What is on disk now, whatever this run wrote.
    const QVector<State> states = inspectAll(destination, names, false);
    QList<Finding> findings;
    for (int i = 0; i < entries.size(); ++i) {
        const Entry &entry = entries.at(i);
        const State &state = states.at(i);
        int differences = 0;
        if (!state.exists) {
            differences = Missing;
        } else if (!state.regular) {
            // A link, folder or device in a file's place is nothing like it.
            differences = Size | Mode | Content;
        } else {
            if (state.size != entry.size)
                differences |= Size;
            if (state.mode != entry.mode)
                differences |= Mode;
            if (state.sha256 != entry.sha256)
                differences |= Content;
        }
        if (differences)
            findings.append({ entry.name, differences });
    }
    return findings;
}

QString InstallManifest::describe(int differences)
{
    if (differences & Missing)
        return QStringLiteral("missing");
    return QString(QLatin1Char(differences & Size ? 'S' : '.')) + QLatin1Char(differences & Mode ? 'M' : '.')
        + QLatin1Char(differences & Content ? '5' : '.');
}
