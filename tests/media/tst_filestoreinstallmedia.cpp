#include "core/installexception.h"
#include "media/filestoreinstallmedia.h"
#include "media/installoverwritedecision.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace {

struct Status
{
    QByteArray bytes;
    mode_t mode = 0;
    time_t modified = 0;
};

Status status(const QString &path)
{
    Status result;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        result.bytes = file.readAll();
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) == 0) {
        result.mode = info.st_mode & 07777;
        result.modified = info.st_mtime;
    }
    return result;
}

bool writeFile(const QString &path, const QByteArray &bytes, mode_t mode, time_t modified)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        return false;
    file.close();
    const struct utimbuf times = { modified, modified };
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0
        && ::utime(QFile::encodeName(path).constData(), &times) == 0;
}

// Declines the names it is told to and records what it was asked.
class RecordingDecision : public InstallOverwriteDecision
{
public:
    bool shouldOverwrite(qint64 sourceModified, quint64 sourceSize, const QString &destination) override
    {
        asked.append({ sourceModified, sourceSize, destination });
        return !declined.contains(QFileInfo(destination).fileName());
    }

    struct Question
    {
        qint64 modified;
        quint64 size;
        QString destination;
    };
    QList<Question> asked;
    QStringList declined;
};

} // namespace

class tst_FileStoreInstallMedia : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void list_data();
    void list();
    void listMissingFolderFails();
    void totalSize();
    void copyKeepsBytesModesTimes();
    void progressReachesTotal();
    void declinedFileIsAnnouncedButNotCopied();
    void emptyListDoesNothing();
    void failures_data();
    void failures();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_root;
};

void tst_FileStoreInstallMedia::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_root = m_dir->filePath(QStringLiteral("store"));
    QVERIFY(writeFile(m_root + "/bin/tool", QByteArray(3000, 'x'), 0755, 1600000000));
    QVERIFY(writeFile(m_root + "/bin/lib/a.so", "abc", 0644, 1500000000));
    QVERIFY(writeFile(m_root + "/bin/.hidden", "h", 0600, 1500000000));
    QVERIFY(writeFile(m_root + "/bin/z/deep/e", "", 0444, 1400000000));
    QVERIFY(writeFile(m_root + "/binaries/b", "12345", 0644, 1500000000));
    QVERIFY(writeFile(m_root + "/html/index.html", "<p>", 0644, 1500000000));
    QVERIFY(QDir(m_root + "/bin").mkpath(QStringLiteral("empty")));
    QVERIFY(QFile::link(m_root + "/html/index.html", m_root + "/bin/link"));
}

void tst_FileStoreInstallMedia::list_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<quint64>("size");

    QTest::newRow("nested, sorted, links left out")
        << "bin" << QStringList { ".hidden", "lib/a.so", "tool", "z/deep/e" } << quint64(3000 + 3 + 1);
    QTest::newRow("sibling with the same prefix is separate")
        << "binaries" << QStringList { "b" } << quint64(5);
    QTest::newRow("sub-folder") << "bin/lib" << QStringList { "a.so" } << quint64(3);
}

void tst_FileStoreInstallMedia::list()
{
    QFETCH(QString, folder);
    QFETCH(QStringList, names);
    QFETCH(quint64, size);

    FileStoreInstallMedia media(m_root);
    quint64 total = 12345;
    QCOMPARE(media.list(folder, total), names);
    QCOMPARE(total, size);
}

void tst_FileStoreInstallMedia::listMissingFolderFails()
{
    // A damaged medium says so instead of installing nothing.
    FileStoreInstallMedia media(m_root);
    quint64 total = 0;
    for (const QString &folder : { QStringLiteral("nothing"), QStringLiteral("bin/lib/a.so") }) {
        try {
            media.list(folder, total);
            QFAIL("no exception");
        } catch (const InstallException &e) {
            QCOMPARE(e.message(), QStringLiteral("Cannot find folder ") + m_root + QLatin1Char('/') + folder);
        }
    }
}

void tst_FileStoreInstallMedia::totalSize()
{
    FileStoreInstallMedia media(m_root);
    QCOMPARE(media.totalSize(), quint64(3000 + 3 + 1 + 0 + 5 + 3));
}

void tst_FileStoreInstallMedia::copyKeepsBytesModesTimes()
{
    const mode_t oldMask = ::umask(022);
    FileStoreInstallMedia media(m_root);
    quint64 total = 0;
    const QStringList names = media.list(QStringLiteral("bin"), total);
    const QString target = m_dir->filePath(QStringLiteral("dest/bin"));
    media.copyFiles(QStringLiteral("bin"), names, target);
    ::umask(oldMask);

    for (const QString &name : names) {
        const Status source = status(m_root + "/bin/" + name);
        const Status copy = status(target + '/' + name);
        QCOMPARE(copy.bytes, source.bytes);
        QCOMPARE(copy.mode, source.mode);
        QCOMPARE(copy.modified, source.modified);
    }
    QVERIFY(!QFileInfo::exists(target + "/link"));
    QVERIFY(!QFileInfo::exists(target + "/empty"));
}

void tst_FileStoreInstallMedia::progressReachesTotal()
{
    FileStoreInstallMedia media(m_root);
    RecordingDecision decision;
    media.setOverwriteDecision(&decision);
    QSignalSpy extracting(&media, &InstallMedia::extractingFile);
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);
    quint64 total = 0;
    const QStringList names = media.list(QStringLiteral("bin"), total);
    const QString target = m_dir->filePath(QStringLiteral("dest"));
    media.copyFiles(QStringLiteral("bin"), names, target);

    QCOMPARE(extracting.count(), names.size());
    quint64 sum = 0;
    QStringList announced;
    for (int i = 0; i < names.size(); ++i) {
        announced.append(extracting.at(i).at(0).toString());
        sum += extracted.at(i).at(0).value<quint64>();
    }
    QCOMPARE(announced, names);
    QCOMPARE(sum, total);

    // The decision hears the source's time and size for each target.
    QCOMPARE(decision.asked.size(), names.size());
    QCOMPARE(decision.asked.at(2).destination, target + "/tool");
    QCOMPARE(decision.asked.at(2).modified, qint64(1600000000));
    QCOMPARE(decision.asked.at(2).size, quint64(3000));
}

void tst_FileStoreInstallMedia::declinedFileIsAnnouncedButNotCopied()
{
    FileStoreInstallMedia media(m_root);
    RecordingDecision decision;
    decision.declined = QStringList { "tool" };
    media.setOverwriteDecision(&decision);
    QSignalSpy extracting(&media, &InstallMedia::extractingFile);
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);
    const QString target = m_dir->filePath(QStringLiteral("dest"));
    media.copyFiles(QStringLiteral("bin"), QStringList { "tool", "lib/a.so" }, target);

    QCOMPARE(extracting.count(), 2);
    QCOMPARE(extracted.count(), 1);
    QCOMPARE(extracted.at(0).at(0).value<quint64>(), quint64(3));
    QVERIFY(!QFileInfo::exists(target + "/tool"));
    QVERIFY(QFileInfo::exists(target + "/lib/a.so"));
}

void tst_FileStoreInstallMedia::emptyListDoesNothing()
{
    FileStoreInstallMedia media(m_root);
    QSignalSpy extracting(&media, &InstallMedia::extractingFile);
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);
    const QString target = m_dir->filePath(QStringLiteral("dest"));
    media.copyFiles(QStringLiteral("bin"), QStringList(), target);
    QCOMPARE(extracting.count(), 0);
    QCOMPARE(extracted.count(), 0);
    QVERIFY(!QFileInfo::exists(target));
}

void tst_FileStoreInstallMedia::failures_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");

    QTest::newRow("folder blocked by a file") << "lib/a.so"
                                              << "Cannot create folder %1/dest/lib";
    QTest::newRow("missing source") << "gone"
                                    << "Cannot copy file %2/bin/gone to %1/dest/gone";
}

void tst_FileStoreInstallMedia::failures()
{
    QFETCH(QString, name);
    QFETCH(QString, message);

    // "lib" exists as a file where the folder must go.
    QVERIFY(writeFile(m_dir->filePath(QStringLiteral("dest/lib")), "x", 0644, 1500000000));
    FileStoreInstallMedia media(m_root);
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);
    const QString target = m_dir->filePath(QStringLiteral("dest"));
    try {
        media.copyFiles(QStringLiteral("bin"), QStringList { "tool", name, ".hidden" }, target);
        QFAIL("no failure");
    } catch (const InstallException &failure) {
        QCOMPARE(failure.message(), message.arg(m_dir->path(), m_root));
    }
    // What was copied before stays; nothing after is copied.
    QVERIFY(QFileInfo::exists(target + "/tool"));
    QVERIFY(!QFileInfo::exists(target + "/.hidden"));
    QCOMPARE(extracted.count(), 1);
}

QTEST_GUILESS_MAIN(tst_FileStoreInstallMedia)
#include "tst_filestoreinstallmedia.moc"
