#include "core/fileutils.h"

#include <QDateTime>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Sets the process umask for one test and puts the old one back.
class UmaskScope
{
public:
    explicit UmaskScope(mode_t mask)
        : m_saved(::umask(mask))
    { }
    ~UmaskScope() { ::umask(m_saved); }

private:
    mode_t m_saved;
};

bool writeFile(const QString &path, const QByteArray &content, mode_t mode)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(content);
    file.close();
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

struct stat statusOf(const QString &path)
{
    struct stat status = {};
    ::stat(QFile::encodeName(path).constData(), &status);
    return status;
}

} // namespace

class tst_FileUtils : public QObject
{
    Q_OBJECT

private slots:
    void copyFile_data();
    void copyFile();
    void copyMissingSourceFails();
    void copyWithoutFolderFails();
    void copyIntoUnwritableTargetFails();
    void makePath_data();
    void makePath();
    void makePathBlockedByFile();
    void removeFile();
    void replacesWithoutWritingThrough_data();
    void replacesWithoutWritingThrough();
};

void tst_FileUtils::copyFile_data()
{
    QTest::addColumn<int>("sourceMode");
    QTest::addColumn<int>("mask");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("target"); // relative to the temporary folder
    QTest::addColumn<int>("oldTargetMode"); // -1: no earlier file
    QTest::addColumn<bool>("createFolders");
    QTest::addColumn<QString>("written"); // where the copy must end up
    QTest::addColumn<int>("mode");

    const QByteArray small("hello\n");
    const QByteArray blocks = QByteArray(131072 * 2 + 17, 'x');
    QTest::newRow("plain") << 0644 << 022 << small << "copy" << -1 << false << "copy" << 0644;
    QTest::newRow("executable") << 0755 << 022 << small << "copy" << -1 << false << "copy" << 0755;
    QTest::newRow("mask clears bits") << 0777 << 027 << small << "copy" << -1 << false << "copy" << 0750;
    QTest::newRow("mask 0") << 0666 << 0 << small << "copy" << -1 << false << "copy" << 0666;
    QTest::newRow("empty file") << 0600 << 022 << QByteArray() << "copy" << -1 << false << "copy" << 0600;
    QTest::newRow("several blocks") << 0644 << 022 << blocks << "copy" << -1 << false << "copy" << 0644;
    QTest::newRow("into existing directory")
        << 0640 << 022 << small << "dir" << -1 << false << "dir/source" << 0640;
    QTest::newRow("existing directory with slash")
        << 0640 << 022 << small << "dir/" << -1 << false << "dir/source" << 0640;
    QTest::newRow("truncates a longer file, mode from source")
        << 0600 << 022 << small << "copy" << 0777 << false << "copy" << 0600;
    QTest::newRow("old target not readable")
        << 0644 << 022 << small << "copy" << 0000 << false << "copy" << 0644;
    QTest::newRow("creates folders") << 0644 << 022 << small << "a/b/c/copy" << -1 << true << "a/b/c/copy"
                                     << 0644;
}

void tst_FileUtils::copyFile()
{
    QFETCH(int, sourceMode);
    QFETCH(int, mask);
    QFETCH(QByteArray, content);
    QFETCH(QString, target);
    QFETCH(int, oldTargetMode);
    QFETCH(bool, createFolders);
    QFETCH(QString, written);
    QFETCH(int, mode);

    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    QVERIFY(QDir(temporary.path()).mkdir(QStringLiteral("dir")));
    const QString source = temporary.filePath(QStringLiteral("source"));
    QVERIFY(writeFile(source, content, mode_t(sourceMode)));
    // Times well in the past, with sub-second parts, so a copy that keeps
    // its own times cannot pass.
    const struct timespec times[2] = { { 1000000000, 250000000 }, { 1100000000, 750000000 } };
    QVERIFY(::utimensat(AT_FDCWD, QFile::encodeName(source).constData(), times, 0) == 0);
    if (oldTargetMode >= 0)
        QVERIFY(writeFile(temporary.filePath(target), QByteArray(1000, 'o'), mode_t(oldTargetMode)));

    {
        const UmaskScope scope { mode_t(mask) };
        QVERIFY(FileUtils::copyFile(source, temporary.filePath(target), createFolders));
        QCOMPARE(int(::umask(mode_t(mask))), mask); // the mask is back as it was
    }

    // Status first: reading the copy would move its access time.
    const struct stat status = statusOf(temporary.filePath(written));
    QFile copy(temporary.filePath(written));
    QVERIFY(copy.open(QIODevice::ReadOnly));
    QCOMPARE(copy.readAll(), content);
    QCOMPARE(int(status.st_mode & 07777), mode);
    QCOMPARE(qint64(status.st_mtim.tv_sec), qint64(1100000000));
    QCOMPARE(qint64(status.st_mtim.tv_nsec), qint64(750000000));
    QCOMPARE(qint64(status.st_atim.tv_sec), qint64(1000000000));
}

void tst_FileUtils::copyMissingSourceFails()
{
    QTemporaryDir temporary;
    QVERIFY(!FileUtils::copyFile(temporary.filePath("missing"), temporary.filePath("copy"), true));
    QVERIFY(!QFile::exists(temporary.filePath("copy")));
}

void tst_FileUtils::copyWithoutFolderFails()
{
    QTemporaryDir temporary;
    QVERIFY(writeFile(temporary.filePath("source"), "x", 0644));
    QVERIFY(!FileUtils::copyFile(temporary.filePath("source"), temporary.filePath("no/such/copy"), false));
    QVERIFY(!QFileInfo::exists(temporary.filePath("no")));
}

void tst_FileUtils::copyIntoUnwritableTargetFails()
{
    QTemporaryDir temporary;
    QVERIFY(writeFile(temporary.filePath("source"), "x", 0644));
    // A path below a regular file can never be created.
    QVERIFY(!FileUtils::copyFile(temporary.filePath("source"), temporary.filePath("source/copy"), true));
}

void tst_FileUtils::makePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("one level") << "a";
    QTest::newRow("several levels") << "a/b/c/d";
    QTest::newRow("trailing slash") << "a/b/";
    QTest::newRow("existing") << "";
    // Taken as the absolute path, so "b" is never made.
    QTest::newRow("dot components") << "a/./b/../c";
}

void tst_FileUtils::makePath()
{
    QFETCH(QString, path);
    QTemporaryDir temporary;
    const QString full = temporary.path() + QLatin1Char('/') + path;
    QVERIFY(FileUtils::makePath(full));
    QVERIFY(QFileInfo(QDir::cleanPath(full)).isDir());
    QVERIFY(FileUtils::makePath(full));
    QVERIFY(!QFileInfo::exists(temporary.filePath("a/b")) || path != "a/./b/../c");
}

void tst_FileUtils::makePathBlockedByFile()
{
    QTemporaryDir temporary;
    QVERIFY(writeFile(temporary.filePath("file"), "x", 0644));
    QVERIFY(!FileUtils::makePath(temporary.filePath("file")));
    QVERIFY(!FileUtils::makePath(temporary.filePath("file/below")));
    QVERIFY(FileUtils::makePath(QStringLiteral("/")));
}

void tst_FileUtils::removeFile()
{
    QTemporaryDir temporary;
    QVERIFY(writeFile(temporary.filePath("file"), "x", 0644));
    QVERIFY(FileUtils::removeFile(temporary.filePath("file")));
    QVERIFY(!QFile::exists(temporary.filePath("file")));
    QVERIFY(!FileUtils::removeFile(temporary.filePath("file")));
    QVERIFY(!FileUtils::removeFile(temporary.path()));
}

void tst_FileUtils::replacesWithoutWritingThrough_data()
{
    QTest::addColumn<QString>("standing"); // what stands at the target before
    QTest::addColumn<bool>("copy"); // copyFile, else writeFile

    for (const bool copy : { true, false }) {
        const char *routine = copy ? "copy" : "write";
        QTest::addRow("%s: nothing", routine) << "nothing" << copy;
        QTest::addRow("%s: link to a file elsewhere", routine) << "file link" << copy;
        QTest::addRow("%s: dangling link", routine) << "dangling link" << copy;
        QTest::addRow("%s: hard link to a file elsewhere", routine) << "hard link" << copy;
        QTest::addRow("%s: read-only file", routine) << "read-only" << copy;
    }
    QTest::addRow("copy: link to a folder elsewhere") << "folder link" << true;
}

void tst_FileUtils::replacesWithoutWritingThrough()
{
    QFETCH(QString, standing);
    QFETCH(bool, copy);

    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    QVERIFY(QDir(temporary.path()).mkpath(QStringLiteral("elsewhere/folder")));
    QVERIFY(QDir(temporary.path()).mkpath(QStringLiteral("target")));
    const QString elsewhere = temporary.filePath(QStringLiteral("elsewhere/file"));
    QVERIFY(writeFile(elsewhere, "not ours\n", 0600));
    const QString source = temporary.filePath(QStringLiteral("source"));
    QVERIFY(writeFile(source, "new content\n", 0644));
    const QString target = temporary.filePath(QStringLiteral("target/file"));
    const QByteArray targetPath = QFile::encodeName(target);
    if (standing == "file link")
        QVERIFY(::symlink(QFile::encodeName(elsewhere).constData(), targetPath.constData()) == 0);
    else if (standing == "dangling link")
        QVERIFY(::symlink(QFile::encodeName(temporary.filePath("elsewhere/new")).constData(),
                    targetPath.constData())
            == 0);
    else if (standing == "hard link")
        QVERIFY(::link(QFile::encodeName(elsewhere).constData(), targetPath.constData()) == 0);
    else if (standing == "folder link")
        QVERIFY(::symlink(QFile::encodeName(temporary.filePath("elsewhere/folder")).constData(),
                    targetPath.constData())
            == 0);
    else if (standing == "read-only")
        QVERIFY(writeFile(target, "old", 0444));

    const bool done
        = copy ? FileUtils::copyFile(source, target) : FileUtils::writeFile(target, "new content\n");
    QVERIFY(done);

    // Nothing elsewhere changed or appeared.
    QFile other(elsewhere);
    QVERIFY(other.open(QIODevice::ReadOnly));
    QCOMPARE(other.readAll(), QByteArray("not ours\n"));
    QCOMPARE(int(statusOf(elsewhere).st_mode & 07777), 0600);
    QCOMPARE(QDir(temporary.filePath("elsewhere"))
                 .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
        QStringList({ QStringLiteral("file"), QStringLiteral("folder") }));
    QVERIFY(QDir(temporary.filePath("elsewhere/folder"))
                .isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden));
    // The target is a file of its own with the new content, and no
    // temporary file is left beside it.
    struct stat status;
    QVERIFY(::lstat(targetPath.constData(), &status) == 0);
    QVERIFY(S_ISREG(status.st_mode));
    QCOMPARE(int(status.st_nlink), 1);
    QFile written(target);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), QByteArray("new content\n"));
    QCOMPARE(
        QDir(temporary.filePath("target")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
        QStringList { QStringLiteral("file") });
}

QTEST_GUILESS_MAIN(tst_FileUtils)
#include "tst_fileutils.moc"
